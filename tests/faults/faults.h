// Faults on order: the n-th thing of a kind that the system asks for is refused. What counts is
// what the system does, not the test: calls of a thread within an InSystem scope, and all of the
// threads that such calls start. A program that links faults.cpp has its operator new replaced and
// some calls of the C library wrapped (see CMakeLists.txt).
#pragma once

#include <cstdint>
#include <string>

namespace valmere::test {

// What can be refused.
enum class Fault {
  kMemory,        // operator new
  kThread,        // a thread
  kKernelObject,  // a semaphore, a mutex
  kOpen,          // opening a file or a folder
  kLook,          // looking at a file, locking, emptying, renaming or removing one
  kRead,          // reading a file
  kWrite,         // writing one, or bringing it to the disk
  kTornWrite,     // the same; half of the write that fails has reached the file
  kSocket,        // accepting a peer, receiving, sending
  kPoll,          // waiting for one more descriptor
};
// As part of a test's name: "TornWrite".
std::string TestNameOf(Fault fault);

// For what stands in for calls: whether the call at hand is to fail; how it fails, with its cause
// in errno; and whether it is made by a thread that the system has started.
bool Refused(Fault fault);
int Refuse(int error);
bool OnWorker();

// How long a fault lasts.
enum class Extent {
  kOnce,    // the n-th call fails, the ones after it do not
  kOnward,  // the n-th call fails and so do all after it
};

// Purpose: while it lives, the n-th call of the kind fails (1 is the next). A test that has not
// come to its end after a minute is ended with the fault's number. Owner: the test; one at a time.
// Threads: the test's. Errors: none.
class OrderedFault {
 public:
  OrderedFault(Fault fault, std::uint64_t n, Extent extent);
  ~OrderedFault();
  OrderedFault(const OrderedFault&) = delete;
  OrderedFault& operator=(const OrderedFault&) = delete;

  // No call fails from here on. True when one has failed.
  bool End();
  bool reached() const;
};

// Purpose: while it lives, the next read or write of a file does not come back from the kernel, as
// on a file system that has gone. Owner: the test; one at a time. Threads: the test's. Errors:
// none.
class HungCall {
 public:
  // kRead or kWrite.
  explicit HungCall(Fault fault);
  // The call comes back and is done.
  ~HungCall();
  HungCall(const HungCall&) = delete;
  HungCall& operator=(const HungCall&) = delete;

  // Whether a thread is in it.
  bool hangs() const;
};

// Purpose: what the calling thread does while it lives is done by the system.
// Owner: the test, on its stack; may be nested.
// Threads: its own; the threads that are started meanwhile are the system's to their end.
// Errors: none.
class InSystem {
 public:
  InSystem();
  ~InSystem();
  InSystem(const InSystem&) = delete;
  InSystem& operator=(const InSystem&) = delete;
};

// Blocks of memory that the system has taken and not given back.
std::int64_t SystemBlocks();

// How many waits of the publishing thread between its passes have begun. These are cut to one
// millisecond, and the wait of an unload is over at once.
std::uint64_t PublishingWaits();

// How many calls of the system wait to receive from a socket.
int WaitingReceives();

}  // namespace valmere::test
