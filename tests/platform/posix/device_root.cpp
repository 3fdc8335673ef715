#include "tests/platform/device_root.h"

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace valmere::test {

DeviceRoot::DeviceRoot() {
  const char* base = getenv("TMPDIR");
  folder_ = std::string(base != nullptr ? base : "/tmp") + "/valmere_root_XXXXXX";
  if (mkdtemp(folder_.data()) == nullptr) throw std::runtime_error("no temporary folder");
  MakeFolder("root");
  Use("root");
}

DeviceRoot::~DeviceRoot() {
  unsetenv("VALMERE_ROOT");
  nftw(
      folder_.c_str(), [](const char* path, const struct stat*, int, FTW*) { return remove(path); },
      8, FTW_DEPTH | FTW_PHYS);
}

void DeviceRoot::Use(const std::string& path) {
  setenv("VALMERE_ROOT", At(path).c_str(), 1);
}

void DeviceRoot::MakeFolder(const std::string& path) {
  if (mkdir(At(path).c_str(), 0755) != 0)
    throw std::runtime_error("the device root can't be prepared");
}

void DeviceRoot::Put(const std::string& path, const std::string& bytes) {
  std::ofstream(At(path), std::ios::binary) << bytes;
}

void DeviceRoot::Remove(const std::string& path) {
  remove(At(path).c_str());
}

bool DeviceRoot::Has(const std::string& path) const {
  return access(At(path).c_str(), F_OK) == 0;
}

std::string DeviceRoot::Get(const std::string& path) const {
  std::ifstream file(At(path), std::ios::binary);
  if (!file) return "(none)";
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace valmere::test
