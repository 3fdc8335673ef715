// The programs that socket_bench measures, and what it asks of each: one small value, all values in
// one answer, one change told to many.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/program.h"

namespace valmere::bench {

// Purpose: one client of a peer, over a socket of its own.
// Owner: the measurement.
// Threads: one.
// Errors: std::runtime_error when the peer has gone.
class PeerClient {
 public:
  virtual ~PeerClient() = default;
  // One small value: 184 bytes there and 330 back at valmered.
  virtual void Get() = 0;
  // Gives the peer so many values of so many bytes. Of valmered they go with this client.
  virtual void Fill(int count, std::size_t value_bytes) = 0;
  // All the values that were given; how many bytes came.
  virtual std::size_t GetAll(int count) = 0;
  // From here on it is told of changes. The first value has to be there.
  virtual void Subscribe() = 0;
  // Makes the change of this number, and waits for nothing.
  virtual void Change(int number) = 0;
  // Reads up to the change of this number.
  virtual void ReceiveChange(int number) = 0;
};

// Purpose: a program that is measured.
// Owner: the bench; what was started ends with it.
// Threads: one.
// Errors: std::runtime_error when it does not start.
class Peer {
 public:
  explicit Peer(std::string name) : name_(std::move(name)) {}
  virtual ~Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  const std::string& name() const { return name_; }
  // Whether it keeps nothing of what it is given, so that its memory tells nothing.
  virtual bool IsBare() const { return false; }

  // Starts it in a folder of its own and returns when a client has been answered.
  void Start();
  void End();
  virtual std::unique_ptr<PeerClient> Connect() const = 0;
  std::vector<pid_t> Processes() const;

 protected:
  virtual void Launch(const Folder& folder) = 0;
  void Run(const std::vector<std::string>& words, int handed = -1);
  // Where its clients connect.
  std::string Socket() const { return folder_->Path("socket"); }

 private:
  const std::string name_;
  std::optional<Folder> folder_;
  std::deque<Program> programs_;
};

// What others than valmered send as the one value, and as a change: with it their message is about
// as long as valmered's, whose entries tell more than the value.
constexpr std::size_t kPeerValueBytes = 240;

std::unique_ptr<Peer> MakeBarePeer();
std::unique_ptr<Peer> MakeValmeredPeer();
std::unique_ptr<Peer> MakeRedisPeer();
std::unique_ptr<Peer> MakeBrokerPeer();
std::unique_ptr<Peer> MakeDirectBusPeer();
std::unique_ptr<Peer> MakeMosquittoPeer();

}  // namespace valmere::bench
