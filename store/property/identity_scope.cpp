// A record is found, made and removed under the pool's lock. Its last handle is given back there
// too, so that no record is found that is about to go; all others are an atomic subtraction.
#include "store/property/identity_scope.h"

#include <exception>
#include <functional>
#include <new>

#include "driver/sync/lock.h"
#include "store/property/sorted_blocks.h"

namespace valmere {

// All records of the process. Made with the first one and gone with the last: an unload leaves
// nothing, and destroys nothing that a thread which was left behind may still use.
class IdentityScope::Pool {
 public:
  // With one more handle.
  static Record* Get(Record* around, std::string_view guid, std::string_view name) {
    const ScopedLock hold(PoolLock());
    if (pool_ == nullptr) pool_ = new Pool;
    try {
      return pool_->FindOrMake(around, guid, name);
    } catch (const std::exception&) {
      DeleteIfEmpty();
      throw;
    }
  }

  // True for the last handle: the record is out of the pool then, and the caller's.
  static bool Drop(Record& record) noexcept {
    std::uint32_t handles = record.handles.load(std::memory_order_relaxed);
    while (handles > 1)
      if (record.handles.compare_exchange_weak(handles, handles - 1, std::memory_order_release,
                                               std::memory_order_relaxed))
        return false;
    const ScopedLock hold(PoolLock());
    if (record.handles.fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
    auto place = pool_->Find(record.around, record.guid(), record.name());
    pool_->records_.Take(place);
    DeleteIfEmpty();
    return true;
  }

  static void Free(Record* record) noexcept {
    record->~Record();
    ::operator delete(record);
  }

 private:
  static Lock& PoolLock() {
    static Lock lock;
    return lock;
  }
  static void DeleteIfEmpty() REQUIRES(PoolLock()) {
    if (pool_->records_.empty()) delete std::exchange(pool_, nullptr);
  }
  // Any order will do.
  static bool IsBefore(const Record& record, const Record* around, std::string_view guid,
                       std::string_view name) {
    if (record.around != around) return std::less<>()(record.around, around);
    const int order = record.guid().compare(guid);
    return order != 0 ? order < 0 : record.name() < name;
  }
  static Record* Make(Record* around, std::string_view guid, std::string_view name) {
    void* const memory = ::operator new(sizeof(Record) + guid.size() + name.size());
    auto* const record = new (memory) Record{around, static_cast<std::uint32_t>(guid.size()),
                                             static_cast<std::uint32_t>(name.size())};
    char* const text = reinterpret_cast<char*>(record + 1);
    name.copy(text + guid.copy(text, guid.size()), name.size());
    return record;
  }

  SortedBlocks<Record*>::Position Find(const Record* around, std::string_view guid,
                                       std::string_view name) const {
    return records_.Find(
        [&](const Record* record) { return IsBefore(*record, around, guid, name); });
  }
  Record* FindOrMake(Record* around, std::string_view guid, std::string_view name) {
    const auto place = Find(around, guid, name);
    if (place != records_.end()) {
      Record* const found = records_[place];
      if (found->around == around && found->guid() == guid && found->name() == name) {
        found->handles.fetch_add(1, std::memory_order_relaxed);
        return found;
      }
    }
    Record* const made = Make(around, guid, name);
    try {
      records_.Insert(place, made);
    } catch (const std::exception&) {
      Free(made);
      throw;
    }
    // Not the last one: the caller has one too.
    if (around != nullptr) around->handles.fetch_add(1, std::memory_order_relaxed);
    return made;
  }

  static inline Pool* pool_ GUARDED_BY(PoolLock()) = nullptr;
  SortedBlocks<Record*> records_;
};

IdentityScope::IdentityScope(const IdentityScope& around, std::string_view guid,
                             std::string_view name)
    : record_(Pool::Get(around.record_, guid, name)) {}

IdentityScope::~IdentityScope() {
  for (Record* record = record_; record != nullptr;) {
    if (!Pool::Drop(*record)) return;
    Record* const around = record->around;
    Pool::Free(record);
    record = around;
  }
}

}  // namespace valmere
