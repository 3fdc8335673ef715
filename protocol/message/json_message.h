// One JSON object that travels in one frame.
#pragma once

#include <atomic>
#include <span>
#include <string>

#include "json/json_value.h"
#include "json/parse_stop.h"
#include "net/connection.h"
#include "protocol/wire/property_records.h"

namespace valmere {

// Purpose: reads and writes framed messages and owns the object of the current one.
// Owner: the code that serves a connection; may be used for one message after another.
// Threads: one at a time.
// Errors: Read and Write return false, and throw std::bad_alloc.
class JsonMessage {
 public:
  JsonMessage() : object_(JsonValue::Object()) {}
  virtual ~JsonMessage() = default;
  JsonMessage(const JsonMessage&) = delete;
  JsonMessage& operator=(const JsonMessage&) = delete;

  // Reads one frame, each field by one read call; a field that comes in pieces is a failure, and so
  // is a text that is no JSON object. A length of 0 or above kMaximumMessageBytes is refused before
  // memory is allocated. After a failure the object is as it was. Once `stopped` is raised it
  // fails, soon after the read call that it waits in has returned.
  virtual bool Read(Connection& connection, const std::atomic<bool>* stopped);
  bool Read(Connection& connection) { return Read(connection, nullptr); }
  // Writes the object as one frame by one write call; false unless all of it was taken.
  virtual bool Write(Connection& connection);
  // Replaces the object by an empty one.
  virtual void Clear();
  // Adds one address to the subscribe requests.
  virtual void AddSubscribeEntry(const PropertyAddress& address) = 0;
  // Replaces the subscribe requests by one entry for each address.
  virtual void SubscribeList(std::span<const PropertyAddress> addresses) = 0;

  const JsonValue& object() const { return object_; }

 protected:
  JsonValue object_;

 private:
  bool ReadText(Connection& connection);
  JsonValue Parse(const ParseStop& stop);

  // The bytes of the current frame. A small buffer is kept from message to message.
  std::string buffer_;
};

}  // namespace valmere
