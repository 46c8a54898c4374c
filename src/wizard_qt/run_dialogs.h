// The wizard's dialogs about a run, made over a parent widget and shown by the caller (exec):
//   makePlanDialog     "What will change": a preview's plan as text, its summary line on top,
//                      in a read-only, scrollable, monospace view.
//   makeSummaryDialog  after a run: its summary line, the component's counters and a link to
//                      the report's text file (opened with the desktop's viewer for .txt), or
//                      why no report was written.
// The dialogs delete themselves when closed. Thread use: the GUI thread.
#pragma once

#include <string>

#include "core/synchronization.h"
#include "report/run_plan.h"

class QDialog;
class QWidget;

namespace dossync::qt {

QDialog* makePlanDialog(const report::RunPlan& plan, QWidget* parent);
QDialog* makeSummaryDialog(const report::RunPlan& plan,
                           const clsOutlookSynchronization::Counters& counters,
                           const std::string& reportTextPath, const std::string& reportError,
                           QWidget* parent);

}  // namespace dossync::qt
