// Host look-ups and categories: translations between the host's keys, existence tests,
// category membership of categories, companies and contacts, and the category in which the
// host files the clients it creates. Every procedure first asks whether the host database is
// open and, when it is not, answers its initial result without touching the database.
// The key look-ups convert the column they read as text: a blank one (a contact of no company)
// is a type mismatch, reported, and the initial result is answered. The category procedures
// test their blank columns first.
// All run on the apartment's thread through its host data access object.
#pragma once

#include <cstdint>
#include <string>

namespace dossync::hostdb {

int32_t getClientDataIDFromContactID(int32_t contactID);
int32_t getCompanyIDFromClientDataID(int32_t clientDataID);
int32_t getCompanyIDFromContactID(int32_t contactID);
int32_t getDefaultContactIDFromCompanyID(int32_t companyID);
std::string getCompanyNameFromCompanyID(int32_t companyID);
// Searches the Companies table for a ContactID column, as the host always has: "" unless the
// companies table carries such a column.
std::string getContactNameFromContactID(int32_t contactID);

bool validCompanyID(int32_t companyID);
bool validContactID(int32_t contactID);
bool validCategoryID(int32_t categoryID);

bool doesThisCategoryBelongToCategory(int32_t categoryID, int32_t& ancestorID);
bool doesThisCompanyBelongToCategory(int32_t companyID, int32_t& categoryID);
bool doesThisContactBelongToCategory(int32_t contactID, int32_t& categoryID);
int32_t getAddressBookDossieraCategory();
std::string getAddressBookCategoryName();
// Finds or creates the category and records it as the host category. Always answers 0: callers
// that need the key read HostCategory again.
int32_t createNewHostCategory(const std::string& categoryName);

inline constexpr const char* kHostCategoryDefaultName = "Dossiera clients";

}  // namespace dossync::hostdb
