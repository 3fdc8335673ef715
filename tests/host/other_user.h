// Rights do not count for the superuser, as which tests may run.
#pragma once

#include <unistd.h>

namespace valmere::test {

// While it lives, a superuser's process has the rights of a user that owns nothing; any other has
// its own.
class OtherUser {
 public:
  OtherUser() { Become(kNobody); }
  ~OtherUser() { Become(0); }
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;

 private:
  static constexpr uid_t kNobody = 65534;

  void Become(uid_t user) const {
    if (superuser_ && seteuid(user) != 0) _exit(1);
  }

  const bool superuser_ = getuid() == 0;
};

}  // namespace valmere::test
