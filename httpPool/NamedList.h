#pragma once

// Objects in the order of their addition, found by name and taken out in constant time, however many there are: of
// several with the same name, the one that was added first is found. Does not own what it lists. Used by the thread
// that drives the library.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// What the lists share, whatever they list.
class NamedListBase {
 public:
  /// An object that may be listed somewhere has another name now. Rare, so it costs every list one new index.
  static void NoteRename() { ++s_renames; }

 protected:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>{}(name); }
  };

  static inline unsigned long s_renames = 0;
};

/// T has GetNameText(), its name as a const std::string&.
template <typename T>
class NamedList : NamedListBase {
 public:
  /// Over what is listed, in order. Valid until the list changes.
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T*;
    using difference_type = std::ptrdiff_t;
    using pointer = T* const*;
    using reference = T* const&;

    Iterator() = default;
    Iterator(pointer slot, pointer end) : m_slot(slot), m_end(end) { SkipHoles(); }
    reference operator*() const { return *m_slot; }
    Iterator& operator++() {
      ++m_slot;
      SkipHoles();
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Iterator& other) const { return m_slot == other.m_slot; }

   private:
    void SkipHoles() {
      while (m_slot != m_end && !*m_slot) {
        ++m_slot;
      }
    }

    pointer m_slot = nullptr;
    pointer m_end = nullptr;
  };

  std::size_t size() const { return m_count; }
  bool empty() const { return m_count == 0; }
  Iterator begin() const { return {m_slots.data(), m_slots.data() + m_slots.size()}; }
  Iterator end() const { return {m_slots.data() + m_slots.size(), m_slots.data() + m_slots.size()}; }

  /// The object at a position below size(). In constant time for whoever goes through the positions one after another,
  /// also when the list changes meanwhile.
  T* operator[](std::size_t position) {
    if (position < m_place.position / 2) {
      m_place = {};
    }
    while (m_place.position > position) {
      --m_place.slot;
      m_place.position -= m_slots[m_place.slot] ? 1 : 0;
    }
    while (m_place.position < position || !m_slots[m_place.slot]) {
      m_place.position += m_slots[m_place.slot] ? 1 : 0;
      ++m_place.slot;
    }
    return m_slots[m_place.slot];
  }

  /// Null for a null or unknown name. Does not allocate.
  T* Find(const char* name) {
    if (!name) {
      return nullptr;
    }
    if (!IsIndexCurrent()) {
      Rebuild();
    }
    const auto found = m_index.find(std::string_view(name));
    return found == m_index.end() ? nullptr : m_slots[found->second.first];
  }

  /// On an exception the list is what it was.
  void Add(T* item) {
    m_slots.push_back(item);
    try {
      Enter(m_slots.size() - 1);
    } catch (...) {
      m_slots.pop_back();
      throw;
    }
    ++m_count;
  }

  /// Takes the object out; the later ones keep their order.
  void Remove(T* item) {
    const std::size_t slot = SlotOf(item);
    if (slot == m_slots.size()) {
      return;
    }
    m_slots[slot] = nullptr;
    --m_count;
    m_place.position -= slot < m_place.slot ? 1 : 0;
    Leave(item, slot);
    CloseHoles();
  }

  /// Takes everything out and returns it in order.
  std::vector<T*> TakeAll() {
    std::vector<T*> items = std::exchange(m_slots, {});
    std::erase(items, nullptr);
    m_index = Index();
    m_count = 0;
    m_place = {};
    return items;
  }

 private:
  struct Entry {
    std::size_t first;  ///< its slot
    std::size_t count;
  };
  using Index = std::unordered_map<std::string, Entry, Hash, std::equal_to<>>;

  /// Where the last position was: `position` objects lie before `slot`.
  struct Place {
    std::size_t slot = 0;
    std::size_t position = 0;
  };

  /// Up to here holes and empty memory are not worth the work.
  static constexpr std::size_t kFewSlots = 64;

  bool IsIndexCurrent() const { return m_seenRenames == s_renames; }

  /// The number of slots for what is not listed.
  std::size_t SlotOf(const T* item) const {
    if (IsIndexCurrent()) {
      const auto found = m_index.find(std::string_view(item->GetNameText()));
      if (found != m_index.end() && m_slots[found->second.first] == item) {
        return found->second.first;
      }
    }
    // Renamed, or not the first of its name.
    return static_cast<std::size_t>(std::find(m_slots.begin(), m_slots.end(), item) - m_slots.begin());
  }

  void Enter(std::size_t slot) {
    const auto [entry, isNew] = m_index.try_emplace(m_slots[slot]->GetNameText(), Entry{slot, 1});
    if (!isNew) {
      ++entry->second.count;
    }
  }

  void Leave(const T* item, std::size_t slot) {
    if (!IsIndexCurrent()) {
      return;  // It will be rebuilt.
    }
    const std::string_view name = item->GetNameText();
    const auto found = m_index.find(name);
    if (found == m_index.end()) {
      return;
    }
    Entry& entry = found->second;
    if (--entry.count == 0) {
      m_index.erase(found);
    } else if (entry.first == slot) {
      const auto next =
          std::find_if(m_slots.begin() + static_cast<std::ptrdiff_t>(slot), m_slots.end(),
                       [name](const T* other) { return other && other->GetNameText() == name; });
      entry.first = static_cast<std::size_t>(next - m_slots.begin());
    }
  }

  void Rebuild() {
    m_index.clear();
    for (std::size_t slot = 0; slot < m_slots.size(); ++slot) {
      if (m_slots[slot]) {
        Enter(slot);
      }
    }
    m_seenRenames = s_renames;
  }

  /// Never are more than about half of the slots holes, nor a quarter of the memory in use.
  void CloseHoles() {
    while (!m_slots.empty() && !m_slots.back()) {
      m_slots.pop_back();
    }
    m_place.slot = std::min(m_place.slot, m_slots.size());
    if (m_slots.size() > 2 * m_count + kFewSlots) {
      MoveTogether();
    }
    if (m_slots.capacity() > 4 * m_slots.size() + kFewSlots) {
      GiveMemoryBack();
    }
  }

  void MoveTogether() {
    std::size_t next = 0;
    for (std::size_t slot = 0; slot < m_slots.size(); ++slot) {
      if (T* item = m_slots[slot]) {
        Renumber(*item, slot, next);
        m_slots[next++] = item;
      }
    }
    m_slots.resize(next);
    m_place.slot = m_place.position;
  }

  void Renumber(const T& item, std::size_t from, std::size_t to) {
    if (!IsIndexCurrent()) {
      return;
    }
    const auto found = m_index.find(std::string_view(item.GetNameText()));
    if (found != m_index.end() && found->second.first == from) {
      found->second.first = to;
    }
  }

  void GiveMemoryBack() {
    try {
      m_slots.shrink_to_fit();
      m_index.rehash(0);
    } catch (const std::bad_alloc&) {
      // It stays for a later removal.
      return;
    }
  }

  /// In order; null where one was taken out. The last one is not null.
  std::vector<T*> m_slots;
  std::size_t m_count = 0;
  Index m_index;
  unsigned long m_seenRenames = s_renames;
  Place m_place;
};
