# The tests of a cross build. Programs that are started by their path, by the bridge and by
# themselves too, get a script of the same name that starts the emulator. Sets `programs`, where
# the tests find them, and `patience`, the factor of every time limit.
set(programs ${CMAKE_BINARY_DIR})
set(patience 1)
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(programs ${CMAKE_BINARY_DIR}/emulated)
  set(patience 10)
  if(TOLVANEV_ENGINE)
    foreach(settings mmse.ini vad.ini)
      configure_file(${PROJECT_SOURCE_DIR}/engine/${settings} ${programs}/${settings} COPYONLY)
    endforeach()
  endif()
endif()

# path is that of the program in the build folder. The script is perl's, which every Debian has: a
# shell opens its script as descriptor 10, more than some stories leave to the program.
function(start_by_path target path)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(emulator ${CMAKE_CROSSCOMPILING_EMULATOR} -0 ${programs}/${path})
    set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR "${emulator}")
    list(JOIN emulator "', '" start)
    set(interpreter "/usr/bin/env -S PERL_BADLANG=0 perl")  # no words about an unknown locale
    file(GENERATE OUTPUT ${programs}/${path}
         CONTENT "#!${interpreter}\nexec '${start}', '$<TARGET_FILE:${target}>', @ARGV;\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endif()
endfunction()
