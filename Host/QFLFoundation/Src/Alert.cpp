#include "QFL/Alert.h"

#include <utility>

namespace QFL {
namespace {

UnhandledExceptionAlert& installedAlert() {
  static UnhandledExceptionAlert alert;
  return alert;
}

}  // namespace

bool ThrowAfterUnhandledExceptionAlert(bool& disabled, const std::string& message) {
  return installedAlert() && installedAlert()(disabled, message);
}

void SetUnhandledExceptionAlert(UnhandledExceptionAlert alert) {
  installedAlert() = std::move(alert);
}

std::ostream& ENDL(std::ostream& stream) {
  return stream.put(stream.widen('\n')).flush();
}

}  // namespace QFL
