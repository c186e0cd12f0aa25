// SPDX-License-Identifier: MIT
// When an interrupt (SIGINT) acts. Its handler ends the process from inside the signal: it stops
// the engines and drops every queue. Amid our own code, with a queue or the heap half changed, that
// would corrupt memory. So it acts only while the bridge waits; an interrupt that comes between two
// waits is left to the next one, microseconds later.
//
// docs/architecture.md tells who acts when.
#ifndef TOLVANEV_INTERRUPT_H
#define TOLVANEV_INTERRUPT_H

class Interrupt {
  public:
    // For the handler: whether the bridge waits just now, so that it may act.
    static bool mayAct();
    // Raises this signal again when the next wait begins.
    static void leaveToNextWait(int signal_number);

    // Stands while the bridge waits; interruptible makes it.
    class Wait {
      public:
        Wait();
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;
    };
};

// Runs what an interrupt may cut short, and returns what it returns. Stands around every system
// call that can wait for a peer, reads behind a successful select included, and around messages to
// standard error. Only waitpid goes without: the handler would collect the same engine, so an
// interrupt acts right after it.
template <typename Call>
auto interruptible(Call call) {
    const Interrupt::Wait wait;
    return call();
}

// Lets an interrupt act that was left to the next wait.
inline void heedInterrupt() {
    interruptible([] {});
}

#endif
