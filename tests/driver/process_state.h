// What the kernel tells of this process. How it is asked lies in a folder for each system.
#pragma once

#include <cstddef>
#include <cstdint>

namespace valmere::test {

std::size_t ThreadCount();
// The files, sockets and other objects of the kernel that are open now.
std::size_t HandleCount();
// True when the thread sleeps, in a lock or a wait.
bool Sleeps(std::uint32_t thread);
std::size_t ResidentBytes();
// The bytes that the C library has given out.
std::size_t HeapBytes();
// The sockets that this process holds and that listen for TCP connections.
std::size_t ListeningSocketCount();

}  // namespace valmere::test
