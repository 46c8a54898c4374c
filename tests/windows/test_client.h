// Shared by the Windows tests' C++ clients: check(), which counts and prints each failure, and
// a host error service that logs "number description" and answers ChooseAction with a fixed
// action (2: leave the procedure; 3: raise ExitProgram and leave).
#pragma once

#include <cstdio>
#include <string>

#include "platform/win32/automation.h"

inline int failures = 0;

inline void check(bool condition, const std::string& what) {
  if (condition) return;
  ++failures;
  std::printf("FAIL %s\n", what.c_str());
  std::fflush(stdout);
}

class TestErrorService final : public dossync::win32::DispatchServer {
 public:
  explicit TestErrorService(int32_t action = 2) : action_(action) {
    addMember(L"EnterProcedure", 1);
    addMember(L"LeaveProcedure", 2);
    addMember(L"RecordError", 3);
    addMember(L"ReportError", 4);
    addMember(L"ChooseAction", 5);
  }
  int errors = 0;
  std::string log;

 protected:
  HRESULT invokeMember(DISPID id, WORD, DISPPARAMS* params, VARIANT* result) override {
    if (id == 3) {
      ++errors;
      log += argument(params, 0).toString() + " " + argument(params, 1).toString() + "\n";
    }
    if (id == 5) dossync::win32::Variant(action_).copyTo(result);
    return S_OK;
  }

 private:
  int32_t action_;
};
