// The progress dialog of the command line: a bar with count, total, rate and time left on a
// terminal, the status line beside it. Silent when standard error is not a terminal or when
// progress is switched off. A value past the maximum is shown as it is.
#pragma once

#include <chrono>
#include <string>

#include "interfaces/progress.h"

namespace dossync::app {

class TerminalProgress : public ProgressDialogBase {
 public:
  explicit TerminalProgress(bool enabled);
  void setValue(int32_t value) override;
  void show() override;
  void setStatus(const std::string& text) override;
  void close() override;

 private:
  void render(bool force);

  bool enabled_;
  std::string status_;
  std::chrono::steady_clock::time_point started_, lastDraw_;
  bool open_ = false;
};

// Registers TerminalProgress with the platform as the host's progress dialog.
void registerTerminalProgress(bool enabled);

}  // namespace dossync::app
