#include "TurnsTable.h"

#include <cstdio>
#include <sstream>

#include "Targets.h"

namespace turns {
namespace {

const char* verdict(bool met) {
  return met ? "met" : "**missed**";
}

// In JSON, null where nothing was asked.
const char* answer(bool asked, bool met) {
  if (!asked) return "null";
  return met ? "true" : "false";
}

void speedAsMarkdown(std::ostream& out, const std::vector<Line>& lines) {
  out << "| work | against | ours, ms | theirs, ms | times as fast | quartiles | by the wall clock "
         "| at least | |\n|---|---|---|---|---|---|---|---|---|\n";
  char text[400];
  for (const Line& line : lines) {
    std::snprintf(text, sizeof(text), "| %s | %s | %.3f | %.3f | %.2f | %.2f to %.2f | %.2f | ",
                  line.row.c_str(), line.against.c_str(), line.ours, line.theirs, line.ratio,
                  line.low, line.high, line.wallRatio);
    out << text;
    if (line.target == 0) {
      out << "| |\n";
      continue;
    }
    std::snprintf(text, sizeof(text), "%.2f | %s |\n", line.target, verdict(line.met()));
    out << text;
  }
}

void memoryAsMarkdown(std::ostream& out, const std::vector<MemoryLine>& lines) {
  out << "\n| peak memory | ours, MiB | the leanest peer | its, MiB | |\n|---|---|---|---|---|\n";
  char text[400];
  for (const MemoryLine& line : lines) {
    std::snprintf(text, sizeof(text), "| %s | %.1f | %s | %.1f | %s |\n", line.row.c_str(),
                  static_cast<double>(line.ours) / 1024, line.leanest.c_str(),
                  static_cast<double>(line.theirs) / 1024, verdict(line.met()));
    out << text;
  }
}

void factsAsMarkdown(std::ostream& out, const std::vector<FactLine>& facts) {
  out << "\n| measured | | at most | |\n|---|---|---|---|\n";
  char text[400];
  for (const FactLine& fact : facts) {
    std::snprintf(text, sizeof(text), "| %s | %.0f | ", fact.name.c_str(), fact.value);
    out << text;
    if (fact.atMost == 0) {
      out << "| |\n";
      continue;
    }
    std::snprintf(text, sizeof(text), "%.0f | %s |\n", fact.atMost, verdict(fact.met()));
    out << text;
  }
}

// Joins what `write` makes of each, as a JSON array.
template <class All, class Write>
void array(std::ostream& out, const char* name, const All& all, Write write) {
  out << "  \"" << name << "\": [";
  const char* comma = "";
  for (const auto& one : all) {
    out << comma << "\n    {";
    write(one);
    out << "}";
    comma = ",";
  }
  out << "\n  ]";
}

}  // namespace

bool MemoryLine::met() const {
  return ours <= theirs + kMemoryAllowance;
}

std::string Table::markdown() const {
  std::ostringstream out;
  speedAsMarkdown(out, speed);
  if (!memory.empty()) memoryAsMarkdown(out, memory);
  if (!facts.empty()) factsAsMarkdown(out, facts);
  return out.str();
}

std::string Table::json() const {
  std::ostringstream out;
  out << "{\n";
  array(out, "speed", speed, [&](const Line& line) {
    out << "\"work\": \"" << line.row << "\", \"against\": \"" << line.against
        << "\", \"ours_ms\": " << line.ours << ", \"theirs_ms\": " << line.theirs
        << ", \"ratio\": " << line.ratio << ", \"low\": " << line.low << ", \"high\": " << line.high
        << ", \"wall_ratio\": " << line.wallRatio << ", \"target\": " << line.target
        << ", \"met\": " << answer(line.target != 0, line.met());
  });
  out << ",\n";
  array(out, "memory", memory, [&](const MemoryLine& line) {
    out << "\"work\": \"" << line.row << "\", \"ours_kib\": " << line.ours << ", \"leanest\": \""
        << line.leanest << "\", \"theirs_kib\": " << line.theirs
        << ", \"met\": " << answer(true, line.met());
  });
  out << ",\n";
  array(out, "facts", facts, [&](const FactLine& fact) {
    out << "\"name\": \"" << fact.name << "\", \"value\": " << fact.value
        << ", \"at_most\": " << fact.atMost
        << ", \"met\": " << answer(fact.atMost != 0, fact.met());
  });
  out << ",\n";
  array(out, "failures", failures,
        [&](const Failure& failure) { out << "\"name\": \"" << failure.name << "\""; });
  out << "\n}\n";
  return out.str();
}

}  // namespace turns
