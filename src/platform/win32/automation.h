// Automation plumbing shared by everything of ours on Windows that speaks COM: UTF-8 text to and
// from BSTRs, an owning VARIANT and interface pointer, late-bound calls by member name on an
// object someone else made (IDispatch::GetIDsOfNames and Invoke, as a scripting host calls),
// and DispatchServer, the base of the small late-bound objects we hand out (the progress
// dialog's start handler, the company collection, the Outlook stand-in's objects).
//
// Failures of a call are RuntimeErrors: an exception the callee raised keeps its number (its
// scode, or the low word of a wCode) and its description, with the object's label and the
// member's name as the source. A DispatchServer answers a RuntimeError from invokeMember as
// DISP_E_EXCEPTION with the error in EXCEPINFO, so nothing escapes through the COM boundary.
// Thread use: the apartment's one thread (single-threaded apartment).
#pragma once

#include <windows.h>
#include <dispex.h>
#include <oaidl.h>
#include <oleauto.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/error.h"
#include "base/value.h"

namespace dossync::win32 {

std::wstring widen(const std::string& utf8);
std::string narrow(const wchar_t* text);  // nullptr (an empty BSTR) is ""
inline std::string narrow(const std::wstring& text) {
  return narrow(text.c_str());
}

// A RuntimeError for a failed HRESULT: the system's message for it, after `what`.
[[noreturn]] void throwHresult(HRESULT hr, const std::string& what);

// An owned BSTR.
class Bstr {
 public:
  explicit Bstr(const std::string& utf8) : s_(::SysAllocString(widen(utf8).c_str())) {}
  ~Bstr() { ::SysFreeString(s_); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  operator BSTR() const { return s_; }

 private:
  BSTR s_;
};

// An owned interface pointer.
template <class T>
class ComPtr {
 public:
  ComPtr() = default;
  explicit ComPtr(T* p) : p_(p) {
    if (p_) p_->AddRef();
  }
  static ComPtr adopt(T* p) {  // takes over a reference the caller holds
    ComPtr c;
    c.p_ = p;
    return c;
  }
  ComPtr(const ComPtr& o) : ComPtr(o.p_) {}
  ComPtr(ComPtr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  ComPtr& operator=(ComPtr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }
  ~ComPtr() {
    if (p_) p_->Release();
  }
  T* get() const { return p_; }
  T* operator->() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }
  T** put() {  // for an out-parameter: lets go of what is held
    *this = ComPtr();
    return &p_;
  }

 private:
  T* p_ = nullptr;
};

// An owned VARIANT.
class Variant {
 public:
  Variant() { ::VariantInit(&v_); }
  explicit Variant(const std::string& text);
  explicit Variant(const char* text) : Variant(std::string(text)) {}
  explicit Variant(int32_t n);
  explicit Variant(bool b);
  explicit Variant(double d);
  explicit Variant(IDispatch* object);        // AddRefs; nullptr is Nothing
  explicit Variant(const value::Date& date);  // VT_DATE
  static Variant missing();                   // an omitted optional argument
  static Variant copyOf(const VARIANT& v);
  Variant(const Variant& o) : Variant() { ::VariantCopy(&v_, const_cast<VARIANT*>(&o.v_)); }
  Variant& operator=(const Variant& o) {
    if (this != &o) ::VariantCopy(&v_, const_cast<VARIANT*>(&o.v_));
    return *this;
  }
  ~Variant() { ::VariantClear(&v_); }

  // Conversions as VB's CStr, CLng, CBool do; RuntimeError 13 (type mismatch) when there is none.
  std::string toString() const;
  int32_t toInt32() const;
  bool toBool() const;
  value::Date toDate() const;
  ComPtr<IDispatch> toDispatch() const;  // empty for Nothing, Empty and non-objects
  bool isEmptyOrNull() const { return v_.vt == VT_EMPTY || v_.vt == VT_NULL; }
  bool isMissing() const { return v_.vt == VT_ERROR && v_.scode == DISP_E_PARAMNOTFOUND; }

  VARIANT* get() { return &v_; }
  const VARIANT* get() const { return &v_; }
  VARIANT* out() {  // for an out-parameter: cleared first
    ::VariantClear(&v_);
    return &v_;
  }
  // Copies the value into a caller's result (an out-parameter of Invoke).
  void copyTo(VARIANT* result) const {
    if (result) ::VariantCopy(result, const_cast<VARIANT*>(&v_));
  }

 private:
  VARIANT v_;
};

// OLE Automation dates.
double toOleDate(const value::Date& date);
value::Date fromOleDate(double date);

// Late-bound calls on an object by member name. The label names the object in errors. Objects
// that answer names only through IDispatchEx (Wine's VBScript classes) are called through it.
class Dispatch {
 public:
  Dispatch() = default;
  Dispatch(IDispatch* object, std::string label) : object_(object), label_(std::move(label)) {}
  IDispatch* get() const { return object_.get(); }
  explicit operator bool() const { return static_cast<bool>(object_); }
  const std::string& label() const { return label_; }

  bool has(const std::string& member) const;
  Variant call(const std::string& method, const std::vector<Variant>& args = {}) const;
  Variant get(const std::string& property, const std::vector<Variant>& args = {}) const;
  void put(const std::string& property, const Variant& value) const;
  void putRef(const std::string& property, const Variant& value) const;

 private:
  DISPID idOf(const std::string& member) const;
  HRESULT lookUp(const std::string& member, DISPID* id) const;
  Variant invoke(const std::string& member, WORD flags, const std::vector<Variant>& args) const;
  ComPtr<IDispatch> object_;
  mutable ComPtr<IDispatchEx> ex_;  // set once a name was found only through it
  std::string label_;
  mutable std::map<std::string, DISPID> ids_;
};

// Base of our own late-bound objects: reference counting, IUnknown and IDispatch with members
// named by addMember (matched without regard to case). Subclasses answer invokeMember.
class DispatchServer : public IDispatch {
 public:
  DispatchServer() = default;
  virtual ~DispatchServer() = default;
  DispatchServer(const DispatchServer&) = delete;
  DispatchServer& operator=(const DispatchServer&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* exception, UINT* argError) override;

 protected:
  void addMember(const std::wstring& name, DISPID id);
  // The member's work; a RuntimeError it throws reaches the caller as DISP_E_EXCEPTION.
  virtual HRESULT invokeMember(DISPID id, WORD flags, DISPPARAMS* params, VARIANT* result) = 0;
  // The i-th argument in the caller's order (DISPPARAMS holds them last first); missing() when
  // the caller gave fewer.
  static Variant argument(const DISPPARAMS* params, unsigned i);
  // The value a property put assigns.
  static Variant assigned(const DISPPARAMS* params);
  // The label errors name this object by.
  virtual std::string label() const { return "object"; }

 private:
  LONG refs_ = 1;
  std::map<std::wstring, DISPID> members_;  // upper case
};

}  // namespace dossync::win32
