// File calls below a folder that is held open, for what valmered itself writes into its root. No
// link is followed.
#pragma once

#include <string>
#include <string_view>

#include "platform/posix/descriptor.h"

namespace valmere::host {

// All that fail throw std::system_error with the cause.
[[noreturn]] void ThrowSystemError(int error);

platform::Descriptor OpenFolder(int parent, const char* name);
// Opens a regular file, without waiting for the other end of a pipe.
platform::Descriptor OpenFile(int folder, const char* name, int flags);
// Makes a file that must not be there yet, to be written.
platform::Descriptor MakeFile(int folder, const char* name, unsigned mode);
void WriteAll(int file, std::string_view bytes);
// Brings a file or a folder to the disk; a file system that can't do it for folders is left alone.
void Sync(int descriptor);

// A name for a file that is not complete yet. If a kill leaves it behind, the next start of the
// service removes it, as it does its own.
std::string UnfinishedName();

}  // namespace valmere::host
