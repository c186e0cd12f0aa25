// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_ERROR_TEXT_H
#define TOLVANEV_TESTS_ERROR_TEXT_H

#include <cstring>
#include <string>

// The what() of the Error that the action throws; "" when it throws none. Others pass through.
template <typename Error, typename Action>
std::string errorOf(Action action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "";
}

// A fixed text with the system's text behind it.
inline std::string withSystemText(const std::string& text, int error_number) {
    return text + std::strerror(error_number);
}

#endif
