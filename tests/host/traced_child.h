// A function that runs in a process of its own and is stopped at each of its system calls.
#pragma once

#include <functional>
#include <string>

namespace valmere::test {

// Why no process can be stopped like that here, or nothing if it can.
std::string WhyNothingCanBeTraced();

// Runs `body` in a child until it is about to make its n-th system call, and kills it there. False
// when it has ended before that.
bool RunAndKillAtCall(int n, const std::function<void()>& body);

#ifdef __x86_64__
// Runs `body` in a child whose n-th system call that may change a file fails for want of room.
// False when it makes fewer of them.
bool RunWithCallRefused(int n, const std::function<void()>& body);
#endif

}  // namespace valmere::test
