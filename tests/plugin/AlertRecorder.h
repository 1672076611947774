#pragma once

#include <string>
#include <vector>

#include "QFL/Alert.h"

// Takes the place of the alert while it lives, and remembers what it was told.
struct AlertRecorder {
  bool disables = false;  // sets the caller's flag
  bool rethrows = false;
  std::vector<std::string> messages;

  AlertRecorder() {
    QFL::SetUnhandledExceptionAlert([this](bool& disabled, const std::string& message) {
      messages.push_back(message);
      if (disables) disabled = true;
      return rethrows;
    });
  }
  ~AlertRecorder() { QFL::SetUnhandledExceptionAlert({}); }
  AlertRecorder(const AlertRecorder&) = delete;
  AlertRecorder& operator=(const AlertRecorder&) = delete;
};
