// Positional formatting: "%0" .. "%9" stand for the values in that place.
#ifndef ORU_ESD_FORMAT_STRING_H
#define ORU_ESD_FORMAT_STRING_H

#include <string>

namespace esd {

// %0 is `value0`, %1 the integer `value1`, %2 to %9 the remaining strings;
// "%%" is one "%", and a "%" before anything but a digit is kept with it.
// A number above 9 stops formatting and gives false, with the output so far.
bool FormatString(std::string& out, const std::string& format, const std::string& value0,
                  int value1, const std::string& value2 = "", const std::string& value3 = "",
                  const std::string& value4 = "", const std::string& value5 = "",
                  const std::string& value6 = "", const std::string& value7 = "",
                  const std::string& value8 = "", const std::string& value9 = "");

} // namespace esd

#endif // ORU_ESD_FORMAT_STRING_H
