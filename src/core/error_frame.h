// The error frame every procedure of the component runs in.
//
// ErrorFrame implements the error-reporting convention of the component: it registers the
// procedure's location with the host's error service on entry, removes it on exit, and turns a
// RuntimeError thrown inside a step into record -> report -> choose action:
//   1  resume: execution goes on with the NEXT STEP of the procedure. A step is one call of
//      ErrorFrame::step(); the failed step is abandoned from the failing statement on. A step
//      is therefore one statement, or a chain of statements each of which needs the one before
//      it (open a recordset, find a row in it, read the row): resuming inside such a chain
//      could only act on what failed. Loops run their condition with test() and a step (or
//      several) per pass, so resuming goes on with the rest of the pass, and a condition that
//      fails ends the loop. An if whose condition fails takes the safe answer test() is given,
//      or, where either branch would do harm on a wrong answer (add a second row, make a new
//      item), runs neither: a find that failed decides nothing.
//   2  leave: no further step runs; the procedure returns what it had reached.
//   3  raise ExitProgram on the current component, then leave.
//   any other value: leave.
// Without an error service the frame records nothing and always leaves on an error.
// Nothing escapes a frame: std::exception and unknown exceptions become RuntimeError first.
//
// A procedure that handled an error returns what it had reached, which is a fallback, not an
// answer. A caller that must not act on a fallback (pair a record with "no item", create what
// a failed look-up did not find) calls it with call(): false when any error was reported
// while the callee ran, in the callee or in anything it called in turn.
//
// Thread use: frames live on the stack of the apartment's one thread.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "base/error.h"

namespace dossync {

class ErrorFrame {
 public:
  explicit ErrorFrame(std::string location);
  ~ErrorFrame();
  ErrorFrame(const ErrorFrame&) = delete;
  ErrorFrame& operator=(const ErrorFrame&) = delete;

  // Runs one step unless the procedure is leaving. Answers true when the step ran to its end.
  template <class Body>
  bool step(Body&& body) {
    if (leaving_) return false;
    try {
      body();
      return true;
    } catch (...) {
      handleCurrentException();
    }
    return false;
  }
  // Runs one step that calls other procedures. Answers true only when the step ran to its end
  // and no error was reported meanwhile: a callee that handled an error answered a fallback.
  template <class Body>
  bool call(Body&& body) {
    const uint64_t before = errorsReported();
    return step(std::forward<Body>(body)) && errorsReported() == before;
  }
  // Evaluates a condition as one step (a loop's, or an if's). A condition that fails, or that
  // does not run because the procedure is leaving, answers `otherwise`: false ends a loop.
  template <class Condition>
  bool test(Condition&& condition, bool otherwise = false) {
    bool answer = otherwise;
    step([&] { answer = condition(); });
    return answer;
  }
  // Runs a statement of the procedure's way out (closing what it opened, restoring the mouse
  // pointer): it runs even when the procedure is leaving, and its own error is reported.
  template <class Body>
  void onExit(Body&& body) {
    const bool wasLeaving = leaving_;
    leaving_ = false;
    step(std::forward<Body>(body));
    leaving_ = leaving_ || wasLeaving;
  }
  // True once an error made the procedure leave: callers stop their loops on it.
  bool leaving() const { return leaving_; }
  // Errors reported on this thread so far (every frame's).
  static uint64_t errorsReported();
  const std::string& location() const { return location_; }

 private:
  void handleCurrentException();
  void handle(const RuntimeError& error);
  void report(const RuntimeError& error);  // record, report, choose and apply the action

  std::string location_;
  bool entered_ = false;
  bool leaving_ = false;
};

}  // namespace dossync
