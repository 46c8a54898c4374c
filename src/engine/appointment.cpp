// A calendar item through the component's open Outlook session.
#include "core/synchronization.h"

namespace dossync {

void clsOutlookSynchronization::CreateAppointment(value::Date& start, value::Date& end,
                                                  std::string& subject, std::string& location) {
  ErrorFrame f(std::string(kSyncLocation) + "CreateAppointment");
  f.step([&] {
    if (!outlookApp_)
      throw RuntimeError(kObjectVariableNotSet,
                         "Object variable not set: no Outlook session is open (StartOutlook)");
    auto item = std::dynamic_pointer_cast<outlook::AppointmentItem>(
        outlookApp_->CreateItem(outlook::olAppointmentItem));
    if (!item) throw RuntimeError(kOutlookOperationFailed, "Outlook did not create an appointment");
    item->setStart(start);
    item->setEnd(end);
    item->setSubject(subject);
    item->setLocation(location);
    item->Send();
  });
}

}  // namespace dossync
