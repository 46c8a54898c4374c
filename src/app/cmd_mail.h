// dossync mail, dossync account set|show and dossync appointment.
//
//   mail         composes one e-mail through clsOutlookSendMail and sends or shows it
//   account set  writes the profile's mail account (how its mail reaches an SMTP server)
//   account show prints it, the password left out
//   appointment  puts one appointment into the calendar through the synchronisation
//                component's Outlook session (StartOutlook, then CreateAppointment)
//
// Errors of the component go to the console error service on standard error; a command whose
// component reported an error, or whose send or display answered False, exits with
// kExitFailure.
#pragma once

#include <iosfwd>
#include <memory>
#include <optional>

namespace CLI {
class App;
}

namespace dossync::app {

class MailCommands {
 public:
  // Adds the commands to the command line.
  explicit MailCommands(CLI::App& app);
  ~MailCommands();
  MailCommands(const MailCommands&) = delete;
  MailCommands& operator=(const MailCommands&) = delete;

  // After parsing: the exit code of the command that was chosen, nullopt when it was none of
  // these.
  std::optional<int> run(std::ostream& out, std::ostream& err);

  struct State;

 private:
  std::unique_ptr<State> s_;
};

}  // namespace dossync::app
