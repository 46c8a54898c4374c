// Host services for the command line: the error service prints each reported error on standard
// error with its number, description and location and answers a fixed action; the message box
// prints to standard error and answers questions with a fixed answer; the UI hooks do nothing.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "base/error.h"
#include "interfaces/services.h"

namespace dossync::app {

class ConsoleErrorService : public IErrorService {
 public:
  explicit ConsoleErrorService(std::ostream& out, int32_t action = kActionLeave)
      : out_(out), action_(action) {}
  void enterProcedure(const std::string& location) override { stack_.push_back(location); }
  void leaveProcedure() override {
    if (!stack_.empty()) stack_.pop_back();
  }
  void recordError(const RuntimeError& error) override;
  void reportError() override;
  int32_t chooseAction() override { return action_; }

  void setAction(int32_t action) { action_ = action; }
  int32_t errorCount() const { return errors_; }
  // The error location (procedure) that was current when the last error was recorded.
  const std::string& lastLocation() const { return lastLocation_; }

 private:
  std::ostream& out_;
  int32_t action_;
  std::vector<std::string> stack_;
  int32_t errors_ = 0;
  int32_t number_ = 0;
  std::string description_;
  std::string lastLocation_;
};

// A command that failed on `e`, told at the terminal: "dossync: <doing><description>", then what
// the error's remedy asks of the person (try again later, check the account). Answers the exit
// code: kExitBusy for an error that may go away by itself, else `otherwise`.
int reportFailure(std::ostream& err, const RuntimeError& e, int otherwise,
                  const std::string& doing = "");

class ConsoleMessageBox : public IMessageBox {
 public:
  explicit ConsoleMessageBox(std::ostream& out, bool answerYes = false)
      : out_(out), answerYes_(answerYes) {}
  int32_t showMessage(const std::string& text, int32_t style, const ObjectPtr& owner,
                      int32_t reserved1, int32_t reserved2, int32_t number) override;
  bool askYesNo(const std::string& text, int32_t style, const ObjectPtr& owner,
                int32_t number) override;
  const std::vector<std::string>& shown() const { return shown_; }

 private:
  std::ostream& out_;
  bool answerYes_;
  std::vector<std::string> shown_;
};

}  // namespace dossync::app
