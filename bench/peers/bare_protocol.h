// What bare_server is asked, and how long its answers are: as long as those of valmered.
#pragma once

#include <cstddef>

namespace valmere::bench {

constexpr std::size_t kBareRequestBytes = 184;
constexpr std::size_t kBareReplyBytes = 330;
constexpr std::size_t kBareEntryBytes = 430;  // of an answer with all values

// A request: one of these, then, as text, how many values.
enum BareRequest : char { kBareGet = 'G', kBareGetAll = 'A', kBareListen = 'L', kBareTell = 'T' };

}  // namespace valmere::bench
