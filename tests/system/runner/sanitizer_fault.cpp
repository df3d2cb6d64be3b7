// SPDX-License-Identifier: MIT
/// \file
/// Makes the error that the environment variable SANITIZER_FAULT names, which the tests of run_test.py expect to be
/// reported. It prints the line with which camsim becomes ready, and exits with status 1, which many tests expect of a
/// program.

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

void leak() {
    [[maybe_unused]] static void* volatile bytes = nullptr;
    bytes = std::malloc(1000);
    bytes = nullptr;
}

void heap_overflow() {
    std::vector<char> bytes(10);
    char* const volatile begin = bytes.data();
    begin[bytes.size()] = 1;
}

void integer_overflow() {
    int volatile number = std::numeric_limits<int>::max();
    number = number + 1;
}

void float_cast_overflow() {
    double const volatile number = 1e30;
    [[maybe_unused]] int const volatile converted = static_cast<int>(number);
}

void float_divide_by_zero() {
    double const volatile zero = 0;
    [[maybe_unused]] double const volatile quotient = 1 / zero;
}

void race() {
    [[maybe_unused]] static int volatile number = 0;
    std::thread other([] { number = 1; });
    number = 2;
    other.join();
}

void none() {}

}  // namespace

int main() {
    std::map<std::string, void (*)()> const faults{
        {"float_cast_overflow", float_cast_overflow},
        {"float_divide_by_zero", float_divide_by_zero},
        {"heap_overflow", heap_overflow},
        {"integer_overflow", integer_overflow},
        {"leak", leak},
        {"none", none},
        {"race", race},
    };
    std::puts("camsim: ready, ");
    std::fflush(stdout);
    faults.at(std::getenv("SANITIZER_FAULT"))();
    std::puts("done");
    std::fflush(stdout);
    if (std::getenv("SANITIZER_FAULT_PAUSE") != nullptr) {
        pause();  // until the test kills it
    }
    return EXIT_FAILURE;
}
