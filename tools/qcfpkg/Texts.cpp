#include "Texts.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

#include "common/Failure.h"

std::string methodName(std::uint16_t method) {
  constexpr std::array<std::pair<std::uint16_t, const char*>, 12> kNames{{{0, "stored"},
                                                                          {1, "shrunk"},
                                                                          {6, "imploded"},
                                                                          {8, "deflate"},
                                                                          {9, "deflate64"},
                                                                          {12, "bzip2"},
                                                                          {14, "lzma"},
                                                                          {93, "zstd"},
                                                                          {95, "xz"},
                                                                          {97, "wavpack"},
                                                                          {98, "ppmd"},
                                                                          {99, "aes"}}};
  for (const auto& [number, name] : kNames) {
    if (number == method) return name;
  }
  return fmt::format("method {}", method);
}

std::string dateText(std::uint16_t date, std::uint16_t time) {
  const int year = 1980 + (date >> 9);
  const int month = date >> 5 & 15;
  const int day = date & 31;
  const int hour = time >> 11;
  const int minute = time >> 5 & 63;
  const int second = (time & 31) * 2;
  constexpr std::array<int, 13> kDays{0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || hour > 23 || minute > 59 || second > 59) return {};
  const bool leap = year % 4 == 0 && year != 2100;
  const int days = kDays[static_cast<std::size_t>(month)] + (month == 2 && leap ? 1 : 0);
  if (day < 1 || day > days) return {};
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", year, month, day, hour, minute, second);
}

std::string flagsText(const ziplayout::Entry& entry) {
  const auto extra = ziplayout::parseExtra(entry.central.extra);
  std::string text;
  const auto put = [&](bool set, char letter) {
    if (set) text.push_back(letter);
  };
  put(entry.isEncrypted(), 'e');
  put((entry.central.flags & ziplayout::kFlagDescriptor) != 0, 'd');
  put((entry.central.flags & ziplayout::kFlagUTF8) != 0, 'u');
  put(!entry.central.extra.empty(), 'x');
  put(!entry.comment.empty(), 'c');
  put(extra.find(ziplayout::kExtraZip64) != nullptr, 'z');
  put(entry.isSymbolicLink(), 'l');
  return text.empty() ? "-" : text;
}

std::string ratioText(std::uint64_t size, std::uint64_t compressed) {
  if (size == 0) return {};
  const double saved = 100.0 * (1.0 - static_cast<double>(compressed) / static_cast<double>(size));
  // Only what needs no room at all has saved everything.
  return fmt::format("{:.0f}%", std::clamp(saved, 0.0, compressed == 0 ? 100.0 : 99.0) + 0.0);
}

std::string sizeText(std::uint64_t size) {
  constexpr std::array<const char*, 5> kUnits{"bytes", "kB", "MB", "GB", "TB"};
  if (size < 1000) return fmt::format("{} bytes", size);
  auto value = static_cast<double>(size);
  std::size_t unit = 0;
  while (value >= 999.95 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

DOSMoment dosMoment(std::time_t moment) {
  std::tm local{};
  localtime_r(&moment, &local);
  if (local.tm_year < 80) return {0x0021, 0};
  if (local.tm_year > 207) return {0xFF9F, 0xBF7D};
  const int date = (local.tm_year - 80) << 9 | (local.tm_mon + 1) << 5 | local.tm_mday;
  const int time = local.tm_hour << 11 | local.tm_min << 5 | std::min(local.tm_sec, 59) / 2;
  return {static_cast<std::uint16_t>(date), static_cast<std::uint16_t>(time)};
}

std::string hexWord(std::uint16_t word) {
  return fmt::format("{:02X}{:02X}", word & 0xFF, word >> 8);
}

bool isUTF8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = tools::utf8Length(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string jsonText(const std::string& text) {
  if (isUTF8(text)) return text;
  std::string out;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x80) {
      out.push_back(character);
    } else {
      out.push_back(static_cast<char>(0xC0 | byte >> 6));
      out.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
    }
  }
  return out;
}

std::string quoted(const std::string& name) {
  constexpr std::size_t kLongest = 200;
  if (name.empty()) return tools::shown(name);
  std::string text;
  for (std::size_t at = 0; at < name.size();) {
    const std::size_t length = std::max<std::size_t>(tools::utf8Length(name, at), 1);
    const std::string character = tools::shown(name.substr(at, length));
    if (text.size() + character.size() > kLongest) return text + "...";
    text += character;
    at += length;
  }
  return text;
}

std::string commentFault(const std::string& comment) {
  if (comment.size() > 65534) return "a comment has at most 65,534 bytes";
  if (!isUTF8(comment)) return "a comment must be UTF-8";
  if (comment.find("PK\5\6") != std::string::npos) return "this comment looks like an end record";
  return {};
}
