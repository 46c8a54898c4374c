// What the vCard folder store reaches through libcurl and libical on Linux has no Windows build:
// the store there serves contacts and mail drafts (the Outlook stand-in of the Windows tests).
#include "backends/mail/smtp_client.h"
#include "backends/mail/vdir_calendar.h"
#include "base/error.h"

namespace dossync::vdir {

namespace {
RuntimeError unavailable(const std::string& what) {
  return RuntimeError(kInvalidProcedureCall,
                      what + " is not available in the Windows build of the vCard folder store",
                      "vdir");
}
}  // namespace

void checkSmtpUrl(const std::string&) {}

void sendSmtp(const SmtpServer& server, const std::string&, const std::vector<std::string>&,
              const std::string&) {
  throw unavailable("Delivery through " + server.url);
}

std::shared_ptr<outlook::AppointmentItem> makeVdirAppointmentItem(const std::filesystem::path&,
                                                                  std::shared_ptr<CardRemote>) {
  throw unavailable("The calendar");
}

}  // namespace dossync::vdir
