#include "QFL/Strings.h"

#include <utility>

#include "UTF16.h"

namespace QFL {
namespace {

StdStringMaker& installedMaker() {
  static StdStringMaker maker;
  return maker;
}

}  // namespace

std::string MakeStdString(const std::u16string& text) {
  return installedMaker() ? installedMaker()(text) : host::encodeUTF8(text);
}

void SetStdStringMaker(StdStringMaker maker) {
  installedMaker() = std::move(maker);
}

}  // namespace QFL
