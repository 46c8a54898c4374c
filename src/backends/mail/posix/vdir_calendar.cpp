#include "backends/mail/vdir_calendar.h"

#include <libical/ical.h>

#include <cstdlib>
#include <ctime>
#include <memory>

#include "backends/vcard/atomic_file.h"
#include "backends/vcard/entry_id.h"
#include "base/error.h"

namespace fs = std::filesystem;

namespace dossync::vdir {
namespace {

// Date arithmetic on the fields alone (no zone, no daylight saving).
value::Date addMinutes(const value::Date& d, int minutes) {
  std::tm tm{};
  tm.tm_year = d.year - 1900;
  tm.tm_mon = d.month - 1;
  tm.tm_mday = d.day;
  tm.tm_hour = d.hour;
  tm.tm_min = d.minute + minutes;
  tm.tm_sec = d.second;
  std::time_t t = timegm(&tm);
  gmtime_r(&t, &tm);
  return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
}

value::Date nextHalfHour() {
  value::Date now = value::now();
  int past = (now.minute % 30) * 60 + now.second;
  now.second = 0;
  return addMinutes(now, 30 - now.minute % 30 - (past == 0 ? 30 : 0));
}

icaltimetype floating(const value::Date& d) {
  icaltimetype t = icaltime_null_time();
  t.year = d.year;
  t.month = d.month;
  t.day = d.day;
  t.hour = d.hour;
  t.minute = d.minute;
  t.second = d.second;
  t.is_date = 0;
  return t;
}

struct ComponentFree {
  void operator()(icalcomponent* c) const { icalcomponent_free(c); }
};

}  // namespace

VdirAppointmentItem::VdirAppointmentItem(fs::path calendarDir, std::shared_ptr<CardRemote> remote)
    : calendarDir_(std::move(calendarDir)), remote_(std::move(remote)), uid_(newUid()) {
  start_ = nextHalfHour();
  end_ = addMinutes(start_, 30);
}

std::string VdirAppointmentItem::FilePath() const {
  return stored_ ? (calendarDir_ / (uid_ + ".ics")).string() : std::string();
}

std::string VdirAppointmentItem::toICalendar() const {
  std::unique_ptr<icalcomponent, ComponentFree> calendar(
      icalcomponent_new(ICAL_VCALENDAR_COMPONENT));
  icalcomponent_add_property(calendar.get(), icalproperty_new_version("2.0"));
  icalcomponent_add_property(calendar.get(), icalproperty_new_prodid("-//dossync//dossync//EN"));
  icalcomponent* event = icalcomponent_new(ICAL_VEVENT_COMPONENT);
  icalcomponent_add_property(event, icalproperty_new_uid(uid_.c_str()));
  icalcomponent_add_property(
      event,
      icalproperty_new_dtstamp(icaltime_current_time_with_zone(icaltimezone_get_utc_timezone())));
  icalcomponent_add_property(event, icalproperty_new_dtstart(floating(start_)));
  icalcomponent_add_property(event, icalproperty_new_dtend(floating(end_)));
  if (!subject_.empty())
    icalcomponent_add_property(event, icalproperty_new_summary(subject_.c_str()));
  if (!location_.empty())
    icalcomponent_add_property(event, icalproperty_new_location(location_.c_str()));
  icalcomponent_add_component(calendar.get(), event);
  std::unique_ptr<char, decltype(&std::free)> text(icalcomponent_as_ical_string_r(calendar.get()),
                                                   &std::free);
  if (!text) throw RuntimeError(kOutOfMemory, "Cannot write the appointment", "vdir");
  return text.get();
}

void VdirAppointmentItem::Save() {
  if (deleted_)
    throw RuntimeError(kOutlookOperationFailed, "The item was deleted: appointment " + uid_,
                       "vdir");
  if (end_ < start_)
    throw RuntimeError(kOutlookOperationFailed,
                       "The appointment ends (" + value::toText(end_) + ") before it starts (" +
                           value::toText(start_) + ")",
                       "vdir");
  std::string ics = toICalendar();
  if (remote_) remote_->publishEvent(uid_, ics);
  writeFileAtomically(calendarDir_ / (uid_ + ".ics"), ics);
  stored_ = true;
}

void VdirAppointmentItem::Delete() {
  std::error_code ec;
  if (stored_) fs::remove(calendarDir_ / (uid_ + ".ics"), ec);
  deleted_ = true;
}

std::shared_ptr<outlook::AppointmentItem> makeVdirAppointmentItem(
    const fs::path& profileDir, std::shared_ptr<CardRemote> remote) {
  return std::make_shared<VdirAppointmentItem>(profileDir / "calendar", std::move(remote));
}

}  // namespace dossync::vdir
