// Finds items by name, ignoring the case of ASCII letters. Owned by whoever owns the items; thread:
// any, one object on one thread at a time.
#pragma once

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Text.h"

namespace netro {

/// An Item is small and cheap to copy, such as a pointer or a list's iterator; `NameOf()(item)`
/// gives its name, which stays the same while it is in the index.
///
/// One array with linear probing, at most half full. At a million names the standard containers
/// spend their time on waiting for memory; here a search reads one place of the array and then the
/// item itself.
template <class Item, class NameOf>
class NameIndex {
 public:
  /// The item of that name, else null. The pointer is good until the next change.
  const Item* Find(std::string_view name) const {
    const Slot* const slot = slots_.empty() ? nullptr : &slots_[Search(name)];
    return slot == nullptr || slot->hash == 0 ? nullptr : &slot->item;
  }

  /// Adds an item whose name is not there yet.
  void Add(Item item) {
    if ((count_ + 1) * 2 > slots_.size()) Grow();
    slots_[Search(NameOf()(item))] = {Hash(NameOf()(item)), item};
    ++count_;
  }

  /// Removes the item of that name, which must be there.
  void Remove(std::string_view name) {
    std::size_t hole = Search(name);
    // Items further on move up, so that no search ends early; but none to before its own place.
    for (std::size_t at = Next(hole); slots_[at].hash != 0; at = Next(at)) {
      if (Distance(slots_[at].hash, at) >= Distance(hole, at)) {
        slots_[std::exchange(hole, at)] = slots_[at];
      }
    }
    slots_[hole] = {};
    --count_;
  }

  void Clear() {
    slots_.clear();
    count_ = 0;
  }

 private:
  struct Slot {
    std::size_t hash = 0;  // 0 when there is none; its low bits tell where the search begins
    Item item{};
  };

  static std::size_t Hash(std::string_view name) {
    const std::size_t hash = HashIgnoreCase(name);
    return hash == 0 ? 1 : hash;
  }

  std::size_t Mask() const { return slots_.size() - 1; }
  std::size_t Next(std::size_t at) const { return (at + 1) & Mask(); }
  std::size_t Distance(std::size_t from, std::size_t to) const { return (to - from) & Mask(); }

  /// Where the name is, or would be put.
  std::size_t Search(std::string_view name) const {
    const std::size_t hash = Hash(name);
    std::size_t at = hash & Mask();
    while (slots_[at].hash != 0 &&
           (slots_[at].hash != hash || !EqualsIgnoreCase(NameOf()(slots_[at].item), name))) {
      at = Next(at);
    }
    return at;
  }

  void Grow() {
    const std::vector<Slot> old =
        std::exchange(slots_, std::vector<Slot>(slots_.empty() ? 8 : slots_.size() * 2));
    for (const Slot& slot : old) {
      if (slot.hash == 0) continue;
      std::size_t at = slot.hash & Mask();
      while (slots_[at].hash != 0) at = Next(at);
      slots_[at] = slot;
    }
  }

  std::vector<Slot> slots_;  // as many as a power of two
  std::size_t count_ = 0;
};

}  // namespace netro
