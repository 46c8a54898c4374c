// companyCollection as the host sees it: an automation collection over the component's
// selection (base/collection.h), live: what the host adds the next Synchronize walks, and what
// the component puts there the host reads.
//
//   Add(value)        a company or contact number, or an Outlook entry id: the item stands for
//                     whichever the run walks
//   Count             number of items
//   Item(index)       1-based; the default member, so coll(1) works; error 9 out of range
//   Remove(index)     1-based; error 9 out of range
//   Clear()
//   IndexOf(value)    the 1-based index of the first item holding value, -1 when none does
//   IsEmpty           True when there are no items
//
// Ownership: COM reference counting; the object shares the selection with the component.
// Thread use: the host's single-threaded apartment.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <memory>

#include "base/collection.h"

namespace dossync::com {

// A new collection object over `selection` (reference count 1).
IDispatch* newSelectionObject(std::shared_ptr<SelectionCollection> selection);
// The selection behind one of our collection objects; nullptr for any other object.
std::shared_ptr<SelectionCollection> selectionOf(IDispatch* object);

}  // namespace dossync::com
