#include "app/terminal_progress.h"

#include <unistd.h>

#include <cstdio>

#include "base/platform.h"

namespace dossync::app {

TerminalProgress::TerminalProgress(bool enabled) : enabled_(enabled && isatty(STDERR_FILENO)) {}

void TerminalProgress::show() {
  started_ = lastDraw_ = std::chrono::steady_clock::now();
  open_ = true;
  if (enabled_) std::fprintf(stderr, "%s\n", message_.c_str());
  render(true);
  if (start_) start_();  // the work runs while the dialog is up
  close();
}

void TerminalProgress::setValue(int32_t value) {
  value_ = value;
  render(false);
}

void TerminalProgress::setStatus(const std::string& text) {
  status_ = text;
  render(false);
}

void TerminalProgress::close() {
  if (!open_) return;
  render(true);
  if (enabled_) std::fprintf(stderr, "\n");
  open_ = false;
}

void TerminalProgress::render(bool force) {
  if (!enabled_ || !open_) return;
  auto now = std::chrono::steady_clock::now();
  if (!force && now - lastDraw_ < std::chrono::milliseconds(100)) return;
  lastDraw_ = now;
  double seconds = std::chrono::duration<double>(now - started_).count();
  int32_t done = value_ - minimum_;
  int32_t total = maximum_ - minimum_;
  double rate = seconds > 0 ? done / seconds : 0;
  constexpr int kWidth = 28;
  int filled = total > 0 ? static_cast<int>(std::min(1.0, double(done) / total) * kWidth) : 0;
  std::string bar(static_cast<size_t>(filled), '#');
  bar.resize(kWidth, '-');
  char left[32] = "--:--";
  if (rate > 0 && total > done) {
    int s = static_cast<int>((total - done) / rate);
    std::snprintf(left, sizeof left, "%02d:%02d", s / 60, s % 60);
  }
  std::string status = status_.substr(0, 40);
  std::fprintf(stderr, "\r[%s] %d/%d  %.0f/s  left %s  %-40s", bar.c_str(), done, total, rate, left,
               status.c_str());
  std::fflush(stderr);
}

void registerTerminalProgress(bool enabled) {
  platform::registerClass(kProgressDialogClass,
                          [enabled] { return std::make_shared<TerminalProgress>(enabled); });
}

}  // namespace dossync::app
