// A device root of a test's own, on a host whose backend takes it from VALMERE_ROOT.
#pragma once

#include <ftw.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace valmere::testing {

// Makes a folder that holds an empty folder "root" and points VALMERE_ROOT at the latter; paths are
// relative to the outer folder, so that a test can also put things beside the root. All is removed
// at the end.
class DeviceRoot {
 public:
  DeviceRoot() {
    const char* base = getenv("TMPDIR");
    folder_ = std::string(base != nullptr ? base : "/tmp") + "/valmere_root_XXXXXX";
    if (mkdtemp(folder_.data()) == nullptr) throw std::runtime_error("no temporary folder");
    MakeFolder("root");
    Use("root");
  }
  ~DeviceRoot() {
    unsetenv("VALMERE_ROOT");
    nftw(
        folder_.c_str(),
        [](const char* path, const struct stat*, int, FTW*) { return remove(path); }, 8,
        FTW_DEPTH | FTW_PHYS);
  }
  DeviceRoot(const DeviceRoot&) = delete;
  DeviceRoot& operator=(const DeviceRoot&) = delete;

  std::string At(const std::string& path) const { return folder_ + "/" + path; }
  void Use(const std::string& path) { setenv("VALMERE_ROOT", At(path).c_str(), 1); }
  void MakeFolder(const std::string& path) { Check(mkdir(At(path).c_str(), 0755)); }
  void MakePipe(const std::string& path) { Check(mkfifo(At(path).c_str(), 0644)); }
  void MakeLink(const std::string& path, const std::string& target) {
    Check(symlink(target.c_str(), At(path).c_str()));
  }
  void Put(const std::string& path, const std::string& bytes) {
    std::ofstream(At(path), std::ios::binary) << bytes;
  }
  bool Has(const std::string& path) const { return access(At(path).c_str(), F_OK) == 0; }
  // What the file holds; "(none)" when it is missing.
  std::string Get(const std::string& path) const {
    std::ifstream file(At(path), std::ios::binary);
    if (!file) return "(none)";
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  static void Check(int result) {
    if (result != 0) throw std::runtime_error("the device root can't be prepared");
  }

  std::string folder_;
};

// While it lives, no file of this process grows beyond `bytes`, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*handler_)(int);
  rlimit before_{};
};

}  // namespace valmere::testing
