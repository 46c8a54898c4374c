#include "app/console_services.h"

#include <ostream>

#include "app/commands.h"

namespace dossync::app {

int reportFailure(std::ostream& err, const RuntimeError& e, int otherwise,
                  const std::string& doing) {
  err << "dossync: " << doing << e.description() << "\n";
  if (const char* advice = adviceFor(e.remedy()); *advice)
    err << "dossync: nothing more was done; " << advice << "\n";
  return e.remedy() == Remedy::kRetryLater ? kExitBusy : otherwise;
}

void ConsoleErrorService::recordError(const RuntimeError& error) {
  ++errors_;
  number_ = error.number();
  description_ = error.description();
  lastLocation_ = stack_.empty() ? error.source() : stack_.back();
}

void ConsoleErrorService::reportError() {
  out_ << "error " << number_ << ": " << description_;
  if (!lastLocation_.empty()) out_ << " [" << lastLocation_ << "]";
  out_ << "\n";
  out_.flush();
}

int32_t ConsoleMessageBox::showMessage(const std::string& text, int32_t style, const ObjectPtr&,
                                       int32_t, int32_t, int32_t number) {
  shown_.push_back(text);
  out_ << text << "\n";
  out_.flush();
  return 1;
}

bool ConsoleMessageBox::askYesNo(const std::string& text, int32_t style, const ObjectPtr&,
                                 int32_t number) {
  shown_.push_back(text);
  out_ << text << (answerYes_ ? " [yes]" : " [no]") << "\n";
  return answerYes_;
}

}  // namespace dossync::app
