#pragma once

// Objects in the order of their addition, found by name in constant time: of several with the same name, the
// one that was added first. Does not own what it lists. Used by the thread that drives the library.

#include <algorithm>
#include <cstddef>
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
  std::size_t size() const { return m_items.size(); }
  bool empty() const { return m_items.empty(); }
  T* operator[](std::size_t position) const { return m_items[position]; }
  auto begin() const { return m_items.begin(); }
  auto end() const { return m_items.end(); }

  /// Null for a null or unknown name. Does not allocate.
  T* Find(const char* name) {
    if (!name) {
      return nullptr;
    }
    if (m_seenRenames != s_renames) {
      Rebuild();
    }
    const auto found = m_index.find(std::string_view(name));
    return found == m_index.end() ? nullptr : found->second.first;
  }

  /// On an exception the list is what it was.
  void Add(T* item) {
    m_items.push_back(item);
    try {
      Enter(item);
    } catch (...) {
      m_items.pop_back();
      throw;
    }
  }

  /// Takes the object out; the later ones keep their order.
  void Remove(T* item) {
    const auto position = std::find(m_items.begin(), m_items.end(), item);
    if (position == m_items.end()) {
      return;
    }
    m_items.erase(position);
    Leave(item);
  }

  /// Takes everything out and returns it in order.
  std::vector<T*> TakeAll() {
    m_index.clear();
    return std::exchange(m_items, {});
  }

 private:
  struct Entry {
    T* first;
    std::size_t count;
  };

  void Enter(T* item) {
    const auto [entry, isNew] = m_index.try_emplace(item->GetNameText(), Entry{item, 1});
    if (!isNew) {
      ++entry->second.count;
    }
  }

  void Leave(T* item) {
    if (m_seenRenames != s_renames) {
      return;  // The index is out of date and will be rebuilt.
    }
    const std::string_view name = item->GetNameText();
    const auto found = m_index.find(name);
    if (found == m_index.end()) {
      return;
    }
    Entry& entry = found->second;
    if (--entry.count == 0) {
      m_index.erase(found);
    } else if (entry.first == item) {
      entry.first = *std::find_if(m_items.begin(), m_items.end(),
                                  [name](const T* other) { return other->GetNameText() == name; });
    }
  }

  void Rebuild() {
    m_index.clear();
    for (T* item : m_items) {
      Enter(item);
    }
    m_seenRenames = s_renames;
  }

  std::vector<T*> m_items;
  std::unordered_map<std::string, Entry, Hash, std::equal_to<>> m_index;
  unsigned long m_seenRenames = s_renames;
};
