#include "wizard_qt/run_dialogs.h"

#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QLabel>
#include <QPlainTextEdit>
#include <QUrl>
#include <QVBoxLayout>

namespace dossync::qt {
namespace {

QString q(const std::string& s) {
  return QString::fromStdString(s);
}

QDialog* newDialog(const QString& title, QWidget* parent, QVBoxLayout*& layout) {
  auto* dialog = new QDialog(parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowTitle(title);
  dialog->setWindowFlag(Qt::WindowContextHelpButtonHint, false);
  layout = new QVBoxLayout(dialog);
  return dialog;
}

void addCloseButton(QDialog* dialog, QVBoxLayout* layout) {
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
  layout->addWidget(buttons);
}

}  // namespace

QDialog* makePlanDialog(const report::RunPlan& plan, QWidget* parent) {
  QVBoxLayout* layout = nullptr;
  QDialog* dialog = newDialog("What will change", parent, layout);
  auto* summary = new QLabel(q(report::summaryLine(plan)), dialog);
  summary->setObjectName("summary");
  summary->setWordWrap(true);
  QFont bold = summary->font();
  bold.setBold(true);
  summary->setFont(bold);
  layout->addWidget(summary);
  auto* text = new QPlainTextEdit(dialog);
  text->setObjectName("plan");
  text->setReadOnly(true);
  text->setLineWrapMode(QPlainTextEdit::NoWrap);
  text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  text->setPlainText(q(report::toText(plan)));
  layout->addWidget(text);
  addCloseButton(dialog, layout);
  dialog->resize(760, 520);
  return dialog;
}

QDialog* makeSummaryDialog(const report::RunPlan& plan,
                           const clsOutlookSynchronization::Counters& n,
                           const std::string& reportTextPath, const std::string& reportError,
                           QWidget* parent) {
  QVBoxLayout* layout = nullptr;
  QDialog* dialog = newDialog("Synchronization finished", parent, layout);
  auto* summary = new QLabel(q(report::summaryLine(plan)), dialog);
  summary->setObjectName("summary");
  summary->setWordWrap(true);
  layout->addWidget(summary);
  QString counters =
      QString(
          "Records walked: %1\nOutlook contacts created: %2\nOutlook contacts updated: %3\n"
          "Pairings saved: %4")
          .arg(n.rowsWalked)
          .arg(n.itemsCreated)
          .arg(n.itemsUpdated)
          .arg(n.mappingsSaved);
  if (n.companiesCreated || n.companiesUpdated || n.contactsCreated)
    counters += QString("\nCompanies created: %1\nCompanies updated: %2\nContacts created: %3")
                    .arg(n.companiesCreated)
                    .arg(n.companiesUpdated)
                    .arg(n.contactsCreated);
  auto* numbers = new QLabel(counters, dialog);
  numbers->setObjectName("counters");
  layout->addWidget(numbers);
  auto* report = new QLabel(dialog);
  report->setObjectName("report");
  report->setWordWrap(true);
  if (!reportTextPath.empty()) {
    QUrl url = QUrl::fromLocalFile(q(reportTextPath));
    report->setText(QString("Report: <a href=\"%1\">%2</a>")
                        .arg(url.toString().toHtmlEscaped(), q(reportTextPath).toHtmlEscaped()));
    report->setTextFormat(Qt::RichText);
    report->setTextInteractionFlags(Qt::TextBrowserInteraction);
    QObject::connect(report, &QLabel::linkActivated, dialog,
                     [](const QString& link) { QDesktopServices::openUrl(QUrl(link)); });
  } else {
    report->setTextFormat(Qt::PlainText);
    report->setText("The run's report was not written: " +
                    q(reportError.empty() ? "no report was made" : reportError));
  }
  layout->addWidget(report);
  addCloseButton(dialog, layout);
  return dialog;
}

}  // namespace dossync::qt
