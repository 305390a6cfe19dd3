#pragma once

// One JSON value (RFC 8259): built in code or parsed by JsonDocumentT, read back, serialised as compact text.
// Values own what they hold; copies are deep. Copying, destroying and serialising do not recurse, so values
// may nest as deep as memory allows. A value type, used by the thread that made it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

class JsonValueT {
 public:
  enum class ValueType { Null, False, True, Object, Array, String, Number };

  struct Member;
  using MemberIterator = Member*;
  using ConstMemberIterator = const Member*;

  /// null
  JsonValueT() = default;
  /// An empty value of the kind; an empty number is 0.
  JsonValueT(ValueType type);
  JsonValueT(int value);
  JsonValueT(unsigned int value);
  JsonValueT(long value);
  JsonValueT(unsigned long value);
  JsonValueT(long long value);
  JsonValueT(unsigned long long value);
  /// Infinities and NaN have no JSON form; they are serialised as null.
  JsonValueT(double value);
  JsonValueT(bool value);
  /// A null pointer gives the empty text.
  JsonValueT(const char* text);
  JsonValueT(std::string text);
  /// Any other pointer would silently turn into a boolean.
  JsonValueT(const void*) = delete;

  JsonValueT(const JsonValueT& other);
  JsonValueT(JsonValueT&& other) noexcept;
  JsonValueT& operator=(const JsonValueT& other);
  JsonValueT& operator=(JsonValueT&& other) noexcept;
  ~JsonValueT();

  ValueType type() const;
  bool isNull() const;
  bool isObject() const;
  bool isArray() const;
  bool isString() const;

  /// Appends a member; a second member of the same name is kept beside the first. A value that is not an
  /// object stays as it is. Returns the value itself.
  JsonValueT& addMember(std::string name, JsonValueT value);

  /// Appends an element. A value that is not an array stays as it is. Returns the value itself.
  JsonValueT& append(JsonValueT value);

  /// Makes room for count members or elements; never shrinks. Nothing on other kinds.
  void reserve(size_t count);

  /// The number of members or elements, 0 on other kinds.
  size_t size() const;

  /// The members of an object in the order of their insertion; an empty range on other kinds.
  MemberIterator begin();
  MemberIterator end();
  ConstMemberIterator begin() const;
  ConstMemberIterator end() const;

  /// The element of an array, which must have it.
  const JsonValueT& operator[](size_t index) const;

  /// The text of a string, otherwise the empty text.
  std::string asString() const;

  /// The value as compact JSON text.
  std::string valueToString() const;

  /// A deep copy.
  JsonValueT clone() const;
  void setNull();

 private:
  friend class JsonValueWriter;

  using Array = std::vector<JsonValueT>;
  using Object = std::vector<Member>;

  bool hasGrandchildren() const;
  void moveDeepChildrenTo(std::vector<JsonValueT>& pending);

  std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Object, Array> m_value;
};

struct JsonValueT::Member {
  JsonValueT name;
  JsonValueT value;
};
