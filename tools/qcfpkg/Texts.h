#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "ZipLayout.h"
#include "common/PackageType.h"

// Words and numbers for people.

// "stored", "deflate", or the published name or number of another method.
std::string methodName(std::uint16_t method);
// "2026-01-02 03:04:06"; empty for what is no calendar date or no time of day.
std::string dateText(std::uint16_t date, std::uint16_t time);
// One letter a property: e encrypted, d data descriptor, u UTF-8 name, x extra field, c comment,
// z Zip64, l symbolic link; "-" for none.
std::string flagsText(const ziplayout::Entry& entry);
// "42%": how much of the size compression saved; empty for no size.
std::string ratioText(std::uint64_t size, std::uint64_t compressed);
// "12.3 MB".
std::string sizeText(std::uint64_t size);

// Date and time as ZIP has them, to two seconds, in local time; moved into 1980 to 2107.
struct DOSMoment {
  std::uint16_t date = 0;
  std::uint16_t time = 0;
  bool operator==(const DOSMoment& other) const { return date == other.date && time == other.time; }
};
DOSMoment dosMoment(std::time_t moment);
// Four hexadecimal digits, low byte first: how the library takes such a number.
std::string hexWord(std::uint16_t word);
// Whether `text` is UTF-8.
bool isUTF8(const std::string& text);
// A name as JSON can hold it: bytes that are no UTF-8 as those of ISO-8859-1.
std::string jsonText(const std::string& text);

// A name as a text about another one quotes it: what can be shown of its beginning. Any number of
// texts may quote one name.
std::string quoted(const std::string& name);

using tools::typeFault;
// The same for a package's comment: empty for a good one.
std::string commentFault(const std::string& comment);
