// A get is noted and sent under one lock, so that the order of the notes is the order on the wire.
// A caller that gives up leaves its note behind: its answer still comes, and must not be taken for
// the next one's.
#include "client/link.h"

#include <exception>
#include <string>
#include <utility>

#include "client/message.h"

namespace valmere::client {

Link::Link(std::unique_ptr<Transport> transport, Role role, Handlers handlers)
    : transport_(std::move(transport)),
      role_(role),
      reader_([this, handlers = std::move(handlers)] { Read(handlers); }) {}

Result<void> Link::Send(std::string_view frame, Deadline deadline,
                        const std::function<Result<void>()>& before) {
  const TimedLock sending(sending_, deadline);
  if (!sending.held()) return Error{ErrorKind::kTimeout, "time-out waiting for others to send"};
  if (before) {
    if (Result<void> go = before(); !go) return go;
  }
  return transport_->Send(frame, deadline);
}

Result<std::vector<Property>> Link::Ask(std::string_view frame, Deadline deadline) {
  const auto call = std::make_shared<Call>();
  if (Result<void> sent = Send(frame, deadline, [&] { return Expect(call); }); !sent)
    return sent.error();
  MutexLock hold(lock_);
  if (!hold.WaitUntil(call->done, deadline, [&] { return call->answer.has_value(); }))
    return Error{ErrorKind::kTimeout, "time-out waiting for the service"};
  return std::move(*call->answer);
}

Result<void> Link::Expect(const std::shared_ptr<Call>& call) {
  const MutexLock hold(lock_);
  if (ended_by_) return *ended_by_;
  calls_.push_back(call);
  return {};
}

void Link::Close() {
  {
    const MutexLock hold(lock_);
    closed_ = true;
  }
  transport_->Close();
}

void Link::End() {
  Close();
  const MutexLock hold(joining_);
  if (reader_.joinable()) reader_.join();
}

std::optional<Error> Link::ended_by() const {
  const MutexLock hold(lock_);
  return ended_by_;
}

void Link::Read(const Handlers& handlers) {
  const Error error = ReadToTheEnd(handlers);
  transport_->Close();
  if (Fail(error)) handlers.ended(*this, error);
}

Error Link::ReadToTheEnd(const Handlers& handlers) {
  try {
    std::string text;
    for (;;)
      if (const Result<void> read = ReadOne(handlers, text); !read) return read.error();
  } catch (const std::exception& error) {
    return {ErrorKind::kConnectionLost, std::string("connection lost: ") + error.what()};
  }
}

Result<void> Link::ReadOne(const Handlers& handlers, std::string& text) {
  Result<void> received = transport_->Receive(text, Deadline::Never());
  if (!received && received.error().kind == ErrorKind::kInterrupted) return {};
  if (!received) return received;
  Result<Incoming> message = ReadMessage(text);
  if (!message) return message.error();
  if (!message->sets.empty()) handlers.sets(std::move(message->sets));
  if (!message->properties) return {};
  if (IsAnswer(*message->properties))
    Deliver(std::move(*message->properties));
  else
    handlers.changes(std::move(*message->properties));
  return {};
}

bool Link::IsAnswer(const std::vector<Property>& properties) const {
  return role_ == Role::kRequests || IsConfirmation(properties);
}

void Link::Deliver(std::vector<Property> answer) {
  const MutexLock hold(lock_);
  if (calls_.empty()) return;
  Call& call = *calls_.front();
  call.answer = std::move(answer);
  call.done.notify_one();
  calls_.pop_front();
}

bool Link::Fail(const Error& error) {
  const MutexLock hold(lock_);
  ended_by_ = error;
  for (const auto& call : calls_) {
    call->answer = error;
    call->done.notify_one();
  }
  calls_.clear();
  return !closed_;
}

}  // namespace valmere::client
