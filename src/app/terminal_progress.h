// The progress dialog of the command line: a bar with count, total, rate and time left on a
// terminal, the status line beside it. Silent when standard error is not a terminal or when
// progress is switched off. A value past the maximum is shown as it is.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "interfaces/progress.h"

namespace dossync::app {

class TerminalProgress : public IProgressDialog {
 public:
  explicit TerminalProgress(bool enabled);
  void setMessage(const std::string& text) override { message_ = text; }
  void setStyle(int32_t) override {}
  void setOwner(ObjectPtr) override {}
  void setMinimum(int32_t value) override { minimum_ = value; }
  void setMaximum(int32_t value) override { maximum_ = value; }
  void setShowBar(bool) override {}
  void setValue(int32_t value) override;
  void setSecondaryValue(int32_t) override {}
  void setAllowCancel(bool) override {}
  void setNumber(int32_t) override {}
  void setStartHandler(std::function<void()> handler) override { start_ = std::move(handler); }
  void show() override;
  int32_t value() const override { return value_; }
  void setStatus(const std::string& text) override;
  void close() override;

 private:
  void render(bool force);

  bool enabled_;
  std::string message_, status_;
  int32_t minimum_ = 0, maximum_ = 0, value_ = 0;
  std::function<void()> start_;
  std::chrono::steady_clock::time_point started_, lastDraw_;
  bool open_ = false;
};

// Registers TerminalProgress with the platform as the host's progress dialog.
void registerTerminalProgress(bool enabled);

}  // namespace dossync::app
