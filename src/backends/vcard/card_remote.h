// A server whose cards a contact folder keeps a copy of (the folder is then its cache, see
// backends/carddav): the folder's writes and deletes go to the server first, and the folder keeps
// what the server took.
//
// Ownership: the folder's writer holds the remote. Thread use: upload runs on the writer's
// thread, remove and publishEvent on the folder's; a delete waits for the writer.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/error.h"

namespace dossync::vdir {

class CardRemote {
 public:
  virtual ~CardRemote() = default;

  struct Upload {
    std::string file;     // the card's name in the folder
    std::string text;     // the card to store
    std::string base;     // what the saved item was read from ("" for a new card)
    std::string current;  // what the folder holds under that name now ("" when nothing)
    bool isNew = false;
  };
  struct Outcome {
    std::optional<std::string> text;  // what the folder keeps now: the server's card
    bool unchanged = false;           // the server holds this card already; nothing was sent
    std::optional<RuntimeError> error;
  };
  // Sends the cards of a batch, in order; one outcome each.
  virtual std::vector<Outcome> upload(const std::vector<Upload>& batch) = 0;
  // Deletes the card on the server; a card already gone there is no error.
  virtual void remove(const std::string& file) = 0;
  // Puts an appointment (an iCalendar object, `uid` its UID) into the account's calendar on the
  // server, when it has one; the folder's own copy is written all the same. On the folder's
  // thread.
  virtual void publishEvent(const std::string& uid, const std::string& ics) {
    (void)uid, (void)ics;
  }
};

}  // namespace dossync::vdir
