// Loads the driver library as the device manager does, sends it one message and prints the answer:
//   prntest.exe [LIBRARY [MESSAGE]]
// Without a message it asks for everything. The message has to be one that gets an answer, or the
// program would wait without end. Exit status: 0, or 1 when a step failed, which it names.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver/prn.h"
#include "protocol/wire/message_frame.h"

namespace {

class Library {
 public:
  explicit Library(const wchar_t* path) : module_(LoadLibraryW(path)) {
    if (module_ == nullptr)
      throw std::runtime_error("the library can't be loaded: error " +
                               std::to_string(GetLastError()));
  }
  ~Library() { FreeLibrary(module_); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  template <typename Function>
  Function Find(const char* name) const {
    const FARPROC found = GetProcAddress(module_, name);
    if (found == nullptr) throw std::runtime_error(std::string("the library lacks ") + name);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
  }

 private:
  const HMODULE module_;
};

std::string Narrow(const wchar_t* wide) {
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(bytes), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), bytes, nullptr, nullptr);
  text.pop_back();  // the closing NUL
  return text;
}

// A read that finds the session ended leaves its room as it was: cleared, which is no identifier.
std::string ReadFrame(decltype(&PRN_Read) read, std::uint32_t handle) {
  using valmere::kStreamFormatIdentifier;
  unsigned char header[valmere::kFrameHeaderBytes] = {};
  constexpr auto kIdentifierBytes = static_cast<std::uint32_t>(kStreamFormatIdentifier.size());
  read(handle, header, kIdentifierBytes);
  if (std::memcmp(header, kStreamFormatIdentifier.data(), kIdentifierBytes) != 0)
    throw std::runtime_error("the service ended the session");
  read(handle, header + kIdentifierBytes, valmere::kLengthFieldBytes);
  std::string text(valmere::DecodeLength(header + kIdentifierBytes), '\0');
  if (!text.empty()) read(handle, text.data(), static_cast<std::uint32_t>(text.size()));
  return text;
}

void Exchange(const Library& library, const std::string& message) {
  const auto init = library.Find<decltype(&PRN_Init)>("PRN_Init");
  const auto deinit = library.Find<decltype(&PRN_Deinit)>("PRN_Deinit");
  const auto open = library.Find<decltype(&PRN_Open)>("PRN_Open");
  const auto close = library.Find<decltype(&PRN_Close)>("PRN_Close");
  const auto read = library.Find<decltype(&PRN_Read)>("PRN_Read");
  const auto write = library.Find<decltype(&PRN_Write)>("PRN_Write");
  const auto io_control = library.Find<decltype(&PRN_IOControl)>("PRN_IOControl");

  const std::uint32_t context = init(0);
  const std::uint32_t handle = open(context, 0, 0);
  io_control(handle, 0, nullptr, 0, nullptr, 0, nullptr);
  std::string frame;
  valmere::BeginFrame(frame);
  frame += message;
  valmere::EndFrame(frame);
  if (write(handle, frame.data(), static_cast<std::uint32_t>(frame.size())) !=
      static_cast<std::int32_t>(frame.size()))
    throw std::runtime_error("the service did not take the message");
  std::printf("%s\n", ReadFrame(read, handle).c_str());
  if (close(handle) != 1) throw std::runtime_error("the handle was not open");
  deinit(context);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  try {
    const Library library(argc > 1 ? argv[1] : L"valmere.dll");
    Exchange(library, argc > 2 ? Narrow(argv[2]) : R"({"GetAllProperties": true})");
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "prntest: %s\n", error.what());
    return 1;
  }
}
