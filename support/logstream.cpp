#include "support/logstream.h"

#include "support/QlxtraStreamA.h"

logstream::logstream(unsigned long level, const char* module)
    : std::ostream(nullptr),
      m_buffer(std::ios_base::in | std::ios_base::out),
      m_level(level),
      m_module(module),
      m_hasWriter(qlxHasWriter(level)) {
  rdbuf(&m_buffer);
  if (!m_hasWriter) {
    // The standard inserters look at this and format nothing.
    setstate(badbit);
  }
}

logstream::~logstream() {
  if (!isWanted()) {
    return;
  }
  static_cast<std::ostream&>(*this) << std::ends;
  QlxtraStreamA line(m_level);
  line << m_buffer.str().c_str();
  line.flusha(m_module);
}

logstream& operator<<(logstream& stream, const char* text) {
  if (text != nullptr && stream.isWanted()) {
    static_cast<std::ostream&>(stream) << text;
  }
  return stream;
}

logstream& operator<<(logstream& stream, const std::string& text) {
  if (stream.isWanted()) {
    static_cast<std::ostream&>(stream) << text;
  }
  return stream;
}

logstream& operator<<(logstream& stream, int& value) {
  if (stream.isWanted()) {
    static_cast<std::ostream&>(stream) << value;
  }
  return stream;
}
