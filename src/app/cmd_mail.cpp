#include "app/cmd_mail.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "app/commands.h"
#include "app/console_services.h"
#include "app/credentials.h"
#include "app/outlook_wiring.h"
#include "backends/mail/mail_account.h"
#include "backends/mail/vdir_mail.h"
#include "base/value.h"
#include "core/apartment.h"
#include "core/synchronization.h"
#include "send_mail/send_mail.h"

namespace fs = std::filesystem;

namespace dossync::app {

struct MailCommands::State {
  CLI::App* mail = nullptr;
  CLI::App* account = nullptr;
  CLI::App* accountSet = nullptr;
  CLI::App* accountShow = nullptr;
  CLI::App* appointment = nullptr;

  std::string outlook, profile;
  bool insecure = false;
  // mail
  std::vector<std::string> to, cc, bcc, attach;
  std::string subject, body, bodyFile;
  bool send = false, display = false;
  // account set
  std::string smtp, from, name, user, password, starttls = "auto";
  long timeout = 0;
  // appointment
  std::string start, end, location;
  PasswordOptions password3;
};

namespace {

void useErrorService(const std::shared_ptr<IErrorService>& service) {
  Apartment& a = apartment();
  a.errorService = service;
  a.generalUtil().setErrorService(service);
  a.errorServiceSet = true;
}

std::optional<std::string> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// FILE or FILE=NAME: a text that names an existing file is a file, whatever it holds.
std::pair<std::string, std::string> splitAttachment(const std::string& spec) {
  std::error_code ec;
  size_t eq = spec.find('=');
  if (eq == std::string::npos || fs::exists(spec, ec)) return {spec, ""};
  return {spec.substr(0, eq), spec.substr(eq + 1)};
}

int runMail(const MailCommands::State& s, std::ostream& out, std::ostream& err) {
  std::string body = s.body;
  if (!s.bodyFile.empty()) {
    auto text =
        s.bodyFile == "-"
            ? std::optional<std::string>(std::string(std::istreambuf_iterator<char>(std::cin), {}))
            : readFile(s.bodyFile);
    if (!text) {
      err << "dossync: cannot read the body file " << s.bodyFile << "\n";
      return kExitUsage;
    }
    body = *text;
  }
  Credentials c;
  try {
    c = resolveCredentials(s.outlook, s.profile, {});
    registerOutlook(c.outlook, s.insecure);
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitUsage);
  }
  auto errors = std::make_shared<ConsoleErrorService>(err);
  useErrorService(errors);

  clsOutlookSendMail mail;
  auto failed = [&] { return errors->errorCount() > 0; };
  if (!mail.StartOutlook(c.profile, c.password)) {
    if (!failed()) err << "dossync: Outlook could not be started\n";
    return kExitFailure;
  }
  if (!mail.CreateNewMail()) {
    if (!failed()) err << "dossync: Outlook made no mail\n";
    return kExitFailure;
  }
  mail.setSubject(s.subject);
  mail.setBody(body);
  for (const auto& a : s.to) mail.setRecipient_TO(a);
  for (const auto& a : s.cc) mail.setRecipient_CC(a);
  for (const auto& a : s.bcc) mail.setRecipient_BCC(a);
  for (const auto& spec : s.attach) {
    auto [file, name] = splitAttachment(spec);
    if (!mail.Attachment(file, name)) break;
  }
  if (failed()) {
    err << "dossync: the mail was not " << (s.send ? "sent" : "shown") << "\n";
    mail.CloseOutlook();
    return kExitFailure;
  }
  bool done = s.send ? mail.SendMail() : mail.DisplayMail();
  mail.CloseOutlook();
  if (!done || failed()) return kExitFailure;
  if (s.send) out << "Sent\n";
  return kExitOk;
}

int runAccount(const MailCommands::State& s, bool set, std::ostream& out, std::ostream& err) {
  try {
    Credentials c = resolveCredentials(s.outlook, s.profile, {});
    registerOutlook(c.outlook, s.insecure);
    Session session = openSession(c.profile, c.password);
    fs::path dir = vdir::vdirProfileDirectory(*session.application);
    if (!set) {
      auto account = vdir::readMailAccount(dir);
      if (!account) {
        err << "dossync: the profile has no mail account (" << vdir::accountFile(dir).string()
            << ")\n";
        return kExitFailure;
      }
      out << "smtp: " << account->server.url << "\n"
          << "from: " << account->from << "\n";
      if (!account->name.empty()) out << "name: " << account->name << "\n";
      if (!account->server.user.empty()) out << "user: " << account->server.user << "\n";
      if (!account->server.password.empty()) out << "password: (set)\n";
      if (account->server.starttls)
        out << "starttls: " << (*account->server.starttls ? "require" : "never") << "\n";
      return kExitOk;
    }
    vdir::MailAccount a;
    a.server.url = s.smtp;
    a.from = s.from;
    a.name = s.name;
    a.server.user = s.user;
    a.server.password = s.password;
    if (s.password == "-") std::getline(std::cin, a.server.password);
    if (s.starttls == "require") a.server.starttls = true;
    if (s.starttls == "never") a.server.starttls = false;
    if (s.timeout > 0) a.server.timeoutSeconds = s.timeout;
    vdir::writeMailAccount(dir, a);
    out << "Saved the mail account in " << vdir::accountFile(dir).string() << "\n";
    return kExitOk;
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitFailure);
  }
}

std::set<fs::path> calendarFiles(const std::string& root) {
  std::set<fs::path> files;
  std::error_code ec;
  for (const auto& profile : fs::directory_iterator(root, ec)) {
    std::error_code ec2;
    for (const auto& f : fs::directory_iterator(profile.path() / "calendar", ec2)) {
      if (f.path().extension() == ".ics") files.insert(f.path());
    }
  }
  return files;
}

int runAppointment(const MailCommands::State& s, std::ostream& out, std::ostream& err) {
  auto start = value::parseDate(s.start), end = value::parseDate(s.end);
  for (auto [given, parsed] : {std::pair{&s.start, &start}, std::pair{&s.end, &end}}) {
    if (!*parsed) {
      err << "dossync: '" << *given << "' is not a date and time (yyyy-mm-dd hh:mm)\n";
      return kExitUsage;
    }
  }
  std::string root;
  Credentials c;
  try {
    c = resolveCredentials(s.outlook, s.profile, s.password3);
    // The folder of the profiles (of a plain vdir's state folders): each one's calendar/.
    root = fs::path(profileFolder(c.outlook, c.profile)).parent_path().string();
    registerOutlook(c.outlook, s.insecure);
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitUsage);
  }
  auto before = calendarFiles(root);
  auto errors = std::make_shared<ConsoleErrorService>(err);
  auto component = std::make_unique<clsOutlookSynchronization>();
  component->setErrorClass(errors);
  component->setMsgboxClass(std::make_shared<ConsoleMessageBox>(err));
  component->setProfile(c.profile);
  component->setPassword(c.password);
  component->setDisplayLoginDialog(false);
  component->setOpenNewSession(false);
  component->StartOutlook();
  std::string subject = s.subject, location = s.location;
  component->CreateAppointment(*start, *end, subject, location);
  component->StopOutlook();
  if (errors->errorCount() > 0) return kExitFailure;
  for (const auto& f : calendarFiles(root)) {
    if (!before.count(f)) out << "Saved the appointment in " << f.string() << "\n";
  }
  return kExitOk;
}

}  // namespace

MailCommands::MailCommands(CLI::App& app) : s_(std::make_unique<State>()) {
  State& s = *s_;
  auto outlookOptions = [&](CLI::App* cmd) {
    cmd->add_option("--outlook", s.outlook,
                    "The Outlook store: vdir:DIR or carddav:URL (default: vdir under "
                    "$XDG_DATA_HOME/dossync/outlook)");
    cmd->add_option("--profile", s.profile, "The Outlook profile (default: the store's default)");
    cmd->add_flag("--insecure", s.insecure, "carddav over https: do not verify the certificate");
  };

  s.mail = app.add_subcommand("mail", "Compose one e-mail through Outlook and send or show it");
  outlookOptions(s.mail);
  s.mail->add_option("--to", s.to, "A recipient (each value is one recipient)")->required();
  s.mail->add_option("--cc", s.cc, "A copy recipient");
  s.mail->add_option("--bcc", s.bcc, "A blind copy recipient");
  s.mail->add_option("--subject", s.subject, "The subject")->required();
  auto* bodies = s.mail->add_option_group("body", "The text of the mail");
  bodies->add_option("--body", s.body, "The text");
  bodies->add_option("--body-file", s.bodyFile, "A file holding the text (- for standard input)");
  bodies->require_option(1);
  s.mail->add_option("--attach", s.attach, "FILE or FILE=NAME: a file to attach, shown as NAME");
  auto* actions = s.mail->add_option_group("action", "What to do with the mail");
  actions->add_flag("--send", s.send, "Send it through the profile's mail account");
  actions->add_flag("--display", s.display, "Save it as a draft and open it");
  actions->require_option(1);

  s.account = app.add_subcommand("account", "The mail account of an Outlook profile");
  s.account->require_subcommand(1);
  s.accountSet = s.account->add_subcommand("set", "Write the profile's mail account");
  outlookOptions(s.accountSet);
  s.accountSet
      ->add_option("--smtp", s.smtp, "The server: smtp://HOST[:PORT] or smtps://HOST[:PORT]")
      ->required();
  s.accountSet->add_option("--from", s.from, "The sender's address")->required();
  s.accountSet->add_option("--name", s.name, "The sender's name");
  auto* user = s.accountSet->add_option("--user", s.user, "The log-on user");
  s.accountSet->add_option("--password", s.password, "The log-on password (- to read a line)")
      ->needs(user);
  s.accountSet
      ->add_option("--starttls", s.starttls,
                   "auto: when the server offers it; require; never (smtp:// only)")
      ->check(CLI::IsMember({"auto", "require", "never"}));
  s.accountSet->add_option("--timeout", s.timeout, "Seconds one delivery may take")
      ->check(CLI::PositiveNumber);
  s.accountShow = s.account->add_subcommand("show", "Print the profile's mail account");
  outlookOptions(s.accountShow);

  s.appointment = app.add_subcommand("appointment", "Put one appointment into the calendar");
  outlookOptions(s.appointment);
  addPasswordOptions(s.appointment, s.password3);
  s.appointment->add_option("--start", s.start, "Start: yyyy-mm-dd hh:mm")->required();
  s.appointment->add_option("--end", s.end, "End: yyyy-mm-dd hh:mm")->required();
  s.appointment->add_option("--subject", s.subject, "The subject")->required();
  s.appointment->add_option("--location", s.location, "The location")->required();
}

MailCommands::~MailCommands() = default;

std::optional<int> MailCommands::run(std::ostream& out, std::ostream& err) {
  if (*s_->mail) return runMail(*s_, out, err);
  if (*s_->accountSet) return runAccount(*s_, true, out, err);
  if (*s_->accountShow) return runAccount(*s_, false, out, err);
  if (*s_->appointment) return runAppointment(*s_, out, err);
  return std::nullopt;
}

}  // namespace dossync::app
