// Conversions between the text stored in the preferences file and typed
// values. Numbers and bools go through a string stream with its default
// formatting (decimal, bools as "1"/"0"); a conversion succeeds only when the
// whole text was used, trailing white space aside.
#ifndef ORU_ESD_CHANGE_TYPE_H
#define ORU_ESD_CHANGE_TYPE_H

#include <sstream>
#include <string>

namespace esd {

namespace detail {

// Writes `from` into a fresh stream and reads `to` back with one formatted
// extraction. A stream already at its end is not asked to skip white space:
// that would mark it failed.
template <typename From, typename To> bool ConvertThroughStream(const From& from, To& to) {
  std::stringstream stream(std::ios::in | std::ios::out);
  if (!(stream << from)) {
    return false;
  }
  To value{};
  stream >> value;
  if (stream.fail()) {
    return false;
  }
  if (!stream.eof()) {
    stream >> std::ws;
  }
  if (stream.fail() || !stream.eof()) {
    return false;
  }
  to = value;
  return true;
}

} // namespace detail

template <typename From, typename To> struct ChangeDiffTypeImpl {
  static bool ChangeType(const From& from, To& to) {
    return detail::ConvertThroughStream(from, to);
  }
};

// One whitespace-delimited word: empty text and text with inner white space
// fail. Used for element names.
template <> struct ChangeDiffTypeImpl<const std::string, std::string> {
  static bool ChangeType(const std::string& from, std::string& to) {
    return detail::ConvertThroughStream(from, to);
  }
};

} // namespace esd

#endif // ORU_ESD_CHANGE_TYPE_H
