// A service on files in memory, and one client of it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "driver/service/service.h"
#include "driver/sync/live_counters.h"
#include "persist/log/debug_switches.h"
#include "tests/driver/messages.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/frames.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::test {

inline constexpr StorePaths kPaths = {u"/Store/Properties.ini", u"/Store/Override.ini",
                                      u"/Store/LogFileName.txt"};
inline constexpr platform::WidePathView kLog = u"/Store/ValmereLog.txt";
inline constexpr std::string_view kGeneral = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";
inline constexpr std::string_view kPeriod = "DA821DC5-948D-4659-9B52-177E4C102129";
inline constexpr std::string_view kZones = "E96B0063-C2EF-4545-92E1-AC4990BA1B37";

inline const std::string kPeriodLine = std::string(kGeneral).append(":").append(kPeriod) +
                                       "|General:Property Publishing Period in ms=";

inline std::unique_ptr<ValmereService> MakeService(
    std::shared_ptr<platform::FileSystem> files = std::make_shared<MemoryFileSystem>()) {
  return std::make_unique<ValmereService>(std::move(files), kPaths, "8.3", "6250");
}

inline Address Own(std::string_view group, std::string_view guid) {
  return {kOwnComponent.component, std::string(group) + ":" + std::string(guid)};
}

inline std::string ZoneLine(std::string_view guid, std::string_view name, std::string_view value) {
  return std::string(kZones)
             .append(":")
             .append(guid)
             .append("|Debug Zone:")
             .append(name)
             .append("=")
             .append(value) +
         "\n";
}

// What one read of exactly `length` bytes gives; shorter when less came.
inline std::string ReadBytes(DriverSession& session, std::size_t length) {
  std::string text(length, '\0');
  const int count = session.Read(text.data(), static_cast<int>(length));
  text.resize(static_cast<std::size_t>(count > 0 ? count : 0));
  return text;
}

inline void SendFrame(DriverSession& session, std::string_view text) {
  const std::string frame = FrameOf(text);
  EXPECT_EQ(session.Write(frame.data(), static_cast<int>(frame.size())),
            static_cast<int>(frame.size()));
}

inline std::uint32_t LeftAlive() {
  return LiveWorkerThreads::Live() + LiveEventFlags::Live() + LiveProperties::Live();
}

// One client of a service on files in memory.
class ServiceOnFilesTest : public ::testing::Test {
 protected:
  void TearDown() override {
    service_.reset();
    session_.reset();
    ResetZones();
    EXPECT_EQ(LeftAlive(), 0u);
  }
  static void ResetZones() {
    for (std::size_t i = 0; i < static_cast<std::size_t>(DebugZone::kCount); ++i)
      SwitchOf(static_cast<DebugZone>(i)) = i < 2;
  }
  void Start() { service_ = MakeService(files_); }
  std::string Log() { return files_->Get(kLog).value_or(""); }
  std::size_t CountInLog(std::string_view text) {
    const std::string log = Log();
    std::size_t count = 0;
    for (std::size_t at = 0; (at = log.find(text, at)) != std::string::npos; ++at)
      ++count;
    return count;
  }
  // What the log holds once the service has gone.
  std::string LogAtEnd() {
    service_.reset();
    return Log();
  }
  // What a service whose file turns this zone on logs from its start to its end, line by line
  // without the numbers behind a colon.
  std::vector<std::string> LifeInZone(std::string_view guid, std::string_view name) {
    files_->Put(kLog, "");
    files_->Put(kPaths.property_file, WithTrailer(ZoneLine(guid, name, "True")));
    Start();
    EXPECT_TRUE(service_->CloseSession(service_->OpenSession()));
    service_->CloseAllSessions();
    const std::string log = LogAtEnd();
    ResetZones();
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < log.size();) {
      const std::size_t end = log.find("\r\n", at);
      const std::string line = log.substr(at, end - at);
      const std::string message = line.substr(line.find(',') + 1);
      if (message.find("unknown stream format") == std::string::npos)
        lines.push_back(message.substr(0, message.find(": ")));
      at = end == std::string::npos ? log.size() : end + 2;
    }
    return lines;
  }
  // The names of the properties that the file has, in order.
  std::vector<std::string> NamesInFile() {
    const std::string file = files_->Get(kPaths.property_file).value_or("");
    std::vector<std::string> names;
    for (std::size_t at = 0; (at = file.find('|', at)) != std::string::npos;) {
      const std::size_t begin = file.find(':', at) + 1;
      at = file.find('=', begin);
      names.push_back(file.substr(begin, at - begin));
    }
    return names;
  }
  void Send(std::string_view text) {
    if (!session_) session_ = service_->sessions().Find(service_->sessions().Open());
    SendFrame(*session_, text);
  }
  // Asks for the property; what was sent before has been handled when the answer comes.
  std::string Get(std::string_view group, std::string_view guid) {
    Send(GetText(Own(group, guid)));
    const std::string head = ReadBytes(*session_, 16);
    const std::string length = ReadBytes(*session_, 4);
    std::size_t size = 0;
    for (int i = 3; i >= 0; --i)
      size = size * 256 + static_cast<unsigned char>(length.at(static_cast<std::size_t>(i)));
    const std::string text = ReadBytes(*session_, size);
    const std::size_t value = text.rfind("\"Value\": \"") + 10;
    return text.substr(value, text.rfind('"') - value);
  }
  bool FileBecomes(const std::string& body) {
    return Eventually([&] { return files_->Get(kPaths.property_file) == WithTrailer(body); });
  }

  const std::shared_ptr<MemoryFileSystem> files_ = std::make_shared<MemoryFileSystem>();
  std::unique_ptr<ValmereService> service_;
  std::shared_ptr<DriverSession> session_;
};

}  // namespace valmere::test
