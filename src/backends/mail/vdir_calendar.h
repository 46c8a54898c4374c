// Appointment items of the local store (Application::CreateItem(1)). Save and Send both store
// the appointment as ROOT/<profile>/calendar/<UID>.ics: an iCalendar 2.0 object (written with
// libical) holding one VEVENT with UID, DTSTAMP (UTC), DTSTART and DTEND (local times without
// a zone, as Outlook's Start and End are), SUMMARY (Subject) and LOCATION, which calendar
// programs and vdirsyncer read. A new item starts at the next half hour and lasts 30 minutes.
// An end before the start is refused (RuntimeError kOutlookOperationFailed) and nothing is
// written. EntryID: the UID once stored, "" before.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "backends/vcard/card_remote.h"
#include "backends/vcard/vdir_item.h"
#include "interfaces/object_model.h"

namespace dossync::vdir {

class VdirAppointmentItem final : public outlook::AppointmentItem, public VdirItem {
 public:
  // With a remote, Save also puts the appointment into the server's calendar.
  explicit VdirAppointmentItem(std::filesystem::path calendarDir,
                               std::shared_ptr<CardRemote> remote = nullptr);

  std::string EntryID() const override { return stored_ ? uid_ : std::string(); }
  void Save() override;
  value::Date Start() const override { return start_; }
  void setStart(const value::Date& d) override { start_ = d; }
  value::Date End() const override { return end_; }
  void setEnd(const value::Date& d) override { end_ = d; }
  std::string Subject() const override { return subject_; }
  void setSubject(const std::string& s) override { subject_ = s; }
  std::string Location() const override { return location_; }
  void setLocation(const std::string& s) override { location_ = s; }
  void Send() override { Save(); }

  std::string FilePath() const override;
  void Delete() override;

  // The iCalendar text as Save writes it (DTSTAMP now).
  std::string toICalendar() const;

 private:
  std::filesystem::path calendarDir_;
  std::shared_ptr<CardRemote> remote_;
  std::string uid_;
  value::Date start_, end_;
  std::string subject_, location_;
  bool stored_ = false;
  bool deleted_ = false;
};

std::shared_ptr<outlook::AppointmentItem> makeVdirAppointmentItem(
    const std::filesystem::path& profileDir, std::shared_ptr<CardRemote> remote = nullptr);

}  // namespace dossync::vdir
