// A device root of a test's own, on a host whose backend takes it from VALMERE_ROOT. What it does
// to the system lies in a folder for each.
#pragma once

#include <string>

namespace valmere::test {

// Makes a folder that holds an empty folder "root" and points VALMERE_ROOT at the latter; paths are
// relative to the outer folder, so that a test can also put things beside the root. All is removed
// at the end. Names are UTF-8 and separated by "/".
class DeviceRoot {
 public:
  DeviceRoot();
  ~DeviceRoot();
  DeviceRoot(const DeviceRoot&) = delete;
  DeviceRoot& operator=(const DeviceRoot&) = delete;

  std::string At(const std::string& path) const { return folder_ + "/" + path; }
  void Use(const std::string& path);
  void MakeFolder(const std::string& path);
  void Put(const std::string& path, const std::string& bytes);
  // Takes a file or an empty folder away, if it is there.
  void Remove(const std::string& path);
  bool Has(const std::string& path) const;
  // What the file holds; "(none)" when it is missing.
  std::string Get(const std::string& path) const;

 private:
  std::string folder_;
};

}  // namespace valmere::test
