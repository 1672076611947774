#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

// JSON on standard output, laid out as dump(2) lays out the whole, though a value at a time: the
// whole may take many times the room of the file that it tells of.
class JSONOutput {
public:
  // A list or an object, up to its end(). Behind the outermost the line ends.
  void beginList() { begin('[', ']'); }
  void beginObject() { begin('{', '}'); }
  void end();

  // The key of what comes next, in an object.
  void key(const std::string& name);
  void value(const nlohmann::ordered_json& value);

private:
  void begin(char opening, char closing);
  // Where the next value goes.
  void place();
  std::string newLine() const;

  std::string fClosing;  // the brackets that are to come, the last one first to come
  bool fIsFirst = true;  // in its list or object
  bool fHasKey = false;
};
