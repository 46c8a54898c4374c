#include "platform/win32/automation.h"

#include <cstdio>
#include <cwchar>
#include <cwctype>

#include "base/utf16.h"

namespace dossync::win32 {

std::wstring widen(const std::string& utf8) {
  return utf16::widen<wchar_t>(utf8);
}

std::string narrow(const wchar_t* text) {
  return text ? utf16::narrow(text, std::wcslen(text)) : std::string();
}

namespace {

std::string systemMessage(HRESULT hr) {
  wchar_t* text = nullptr;
  ::FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, static_cast<DWORD>(hr), 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string message = narrow(text);
  ::LocalFree(text);
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r' ||
                              message.back() == ' ' || message.back() == '.'))
    message.pop_back();
  char code[16];
  std::snprintf(code, sizeof code, "0x%08lX", static_cast<unsigned long>(hr));
  return message.empty() ? std::string("error ") + code : message + " (" + code + ")";
}

// The Automation error number of an HRESULT, as VB's Err.Number shows it.
int32_t errorNumber(HRESULT hr) {
  switch (hr) {
    case DISP_E_TYPEMISMATCH:
      return kTypeMismatch;
    case DISP_E_OVERFLOW:
      return kOverflow;
    case DISP_E_BADINDEX:
      return kSubscriptOutOfRange;
    case E_OUTOFMEMORY:
      return kOutOfMemory;
    case REGDB_E_CLASSNOTREG:
    case CO_E_CLASSSTRING:
      return kCannotCreateObject;
    case DISP_E_MEMBERNOTFOUND:
    case DISP_E_UNKNOWNNAME:
      return 438;  // Object doesn't support this property or method
    default:
      return static_cast<int32_t>(hr);
  }
}

}  // namespace

void throwHresult(HRESULT hr, const std::string& what) {
  throw RuntimeError(errorNumber(hr), what + ": " + systemMessage(hr), "dossync");
}

Variant::Variant(const std::string& text) : Variant() {
  v_.vt = VT_BSTR;
  v_.bstrVal = ::SysAllocString(widen(text).c_str());
}

Variant::Variant(int32_t n) : Variant() {
  v_.vt = VT_I4;
  v_.lVal = n;
}

Variant::Variant(bool b) : Variant() {
  v_.vt = VT_BOOL;
  v_.boolVal = b ? VARIANT_TRUE : VARIANT_FALSE;
}

Variant::Variant(double d) : Variant() {
  v_.vt = VT_R8;
  v_.dblVal = d;
}

Variant::Variant(IDispatch* object) : Variant() {
  v_.vt = VT_DISPATCH;
  v_.pdispVal = object;
  if (object) object->AddRef();
}

Variant::Variant(const value::Date& date) : Variant() {
  v_.vt = VT_DATE;
  v_.date = toOleDate(date);
}

Variant Variant::missing() {
  Variant v;
  v.v_.vt = VT_ERROR;
  v.v_.scode = DISP_E_PARAMNOTFOUND;
  return v;
}

Variant Variant::copyOf(const VARIANT& from) {
  Variant v;
  ::VariantCopyInd(&v.v_, const_cast<VARIANT*>(&from));
  return v;
}

namespace {
VARIANT converted(const VARIANT& from, VARTYPE type) {
  VARIANT to;
  ::VariantInit(&to);
  HRESULT hr = ::VariantChangeType(&to, const_cast<VARIANT*>(&from), VARIANT_ALPHABOOL, type);
  if (FAILED(hr)) throw RuntimeError(kTypeMismatch, "Type mismatch: " + systemMessage(hr));
  return to;
}
}  // namespace

std::string Variant::toString() const {
  if (isEmptyOrNull()) return {};
  if (v_.vt == VT_BOOL) return v_.boolVal ? "True" : "False";
  if (v_.vt == VT_DATE) return value::toText(toDate());
  VARIANT s = converted(v_, VT_BSTR);
  std::string out = narrow(s.bstrVal);
  ::VariantClear(&s);
  return out;
}

int32_t Variant::toInt32() const {
  if (isEmptyOrNull()) return 0;
  VARIANT n = converted(v_, VT_I4);
  return n.lVal;
}

bool Variant::toBool() const {
  if (isEmptyOrNull()) return false;
  VARIANT b = converted(v_, VT_BOOL);
  return b.boolVal != VARIANT_FALSE;
}

value::Date Variant::toDate() const {
  VARIANT d = converted(v_, VT_DATE);
  return fromOleDate(d.date);
}

ComPtr<IDispatch> Variant::toDispatch() const {
  const VARIANT* v = &v_;
  if (v->vt == (VT_BYREF | VT_VARIANT)) v = v->pvarVal;
  if (v->vt == VT_DISPATCH) return ComPtr<IDispatch>(v->pdispVal);
  if (v->vt == (VT_DISPATCH | VT_BYREF) && v->ppdispVal) return ComPtr<IDispatch>(*v->ppdispVal);
  if (v->vt == VT_UNKNOWN && v->punkVal) {
    IDispatch* d = nullptr;
    if (SUCCEEDED(v->punkVal->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&d))))
      return ComPtr<IDispatch>::adopt(d);
  }
  return {};
}

double toOleDate(const value::Date& date) {
  SYSTEMTIME st{};
  st.wYear = static_cast<WORD>(date.year);
  st.wMonth = static_cast<WORD>(date.month);
  st.wDay = static_cast<WORD>(date.day);
  st.wHour = static_cast<WORD>(date.hour);
  st.wMinute = static_cast<WORD>(date.minute);
  st.wSecond = static_cast<WORD>(date.second);
  double out = 0;
  if (!::SystemTimeToVariantTime(&st, &out))
    throw RuntimeError(kTypeMismatch, "Not a date: " + value::toText(date));
  return out;
}

value::Date fromOleDate(double date) {
  SYSTEMTIME st{};
  if (!::VariantTimeToSystemTime(date, &st))
    throw RuntimeError(kTypeMismatch, "Not a date: " + std::to_string(date));
  return value::Date{st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond};
}

namespace {
// IID_IDispatchEx, which mingw-w64's uuid library does not carry.
constexpr IID kIidDispatchEx = {
    0xa6ef9860, 0xc720, 0x11d0, {0x93, 0x37, 0x00, 0xa0, 0xc9, 0x0d, 0xca, 0xa9}};
}  // namespace

HRESULT Dispatch::lookUp(const std::string& member, DISPID* id) const {
  std::wstring name = widen(member);
  LPOLESTR names[] = {name.data()};
  *id = DISPID_UNKNOWN;
  HRESULT hr = object_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, id);
  if (hr != E_NOTIMPL) return hr;
  // Script engines' own objects may answer names only through IDispatchEx.
  ComPtr<IDispatchEx> ex;
  if (FAILED(object_->QueryInterface(kIidDispatchEx, reinterpret_cast<void**>(ex.put()))))
    return hr;
  Bstr text(member);
  hr = ex->GetDispID(text, fdexNameCaseInsensitive, id);
  if (SUCCEEDED(hr)) ex_ = ex;
  return hr;
}

bool Dispatch::has(const std::string& member) const {
  if (!object_) return false;
  DISPID id = DISPID_UNKNOWN;
  return SUCCEEDED(lookUp(member, &id));
}

DISPID Dispatch::idOf(const std::string& member) const {
  if (!object_)
    throw RuntimeError(kObjectVariableNotSet,
                       "Object variable not set: " + label_ + " (calling " + member + ")");
  auto it = ids_.find(member);
  if (it != ids_.end()) return it->second;
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = lookUp(member, &id);
  if (FAILED(hr)) throwHresult(hr, label_ + " has no member " + member);
  ids_[member] = id;
  return id;
}

Variant Dispatch::invoke(const std::string& member, WORD flags,
                         const std::vector<Variant>& args) const {
  DISPID id = idOf(member);
  // DISPPARAMS holds the arguments last first.
  std::vector<VARIANT> reversed;
  for (auto it = args.rbegin(); it != args.rend(); ++it) reversed.push_back(*it->get());
  DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr,
                    static_cast<UINT>(reversed.size()), 0};
  DISPID named = DISPID_PROPERTYPUT;
  if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
    params.rgdispidNamedArgs = &named;
    params.cNamedArgs = 1;
  }
  Variant result;
  EXCEPINFO exception{};
  UINT argError = 0;
  HRESULT hr = object_->Invoke(
      id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
      (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) ? nullptr : result.out(),
      &exception, &argError);
  if (hr == DISP_E_EXCEPTION) {
    if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
    std::string description = narrow(exception.bstrDescription);
    std::string source = narrow(exception.bstrSource);
    int32_t number = exception.wCode ? exception.wCode : errorNumber(exception.scode);
    ::SysFreeString(exception.bstrDescription);
    ::SysFreeString(exception.bstrSource);
    ::SysFreeString(exception.bstrHelpFile);
    throw RuntimeError(number,
                       description.empty() ? label_ + "." + member + " failed" : description,
                       source.empty() ? label_ + "." + member : source);
  }
  if (FAILED(hr)) throwHresult(hr, label_ + "." + member);
  return result;
}

Variant Dispatch::call(const std::string& method, const std::vector<Variant>& args) const {
  return invoke(method, DISPATCH_METHOD | DISPATCH_PROPERTYGET, args);
}

Variant Dispatch::get(const std::string& property, const std::vector<Variant>& args) const {
  return invoke(property, DISPATCH_PROPERTYGET | DISPATCH_METHOD, args);
}

void Dispatch::put(const std::string& property, const Variant& value) const {
  invoke(property, DISPATCH_PROPERTYPUT, {value});
}

void Dispatch::putRef(const std::string& property, const Variant& value) const {
  invoke(property, DISPATCH_PROPERTYPUTREF, {value});
}

HRESULT DispatchServer::QueryInterface(REFIID iid, void** out) {
  if (!out) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch)) {
    *out = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
  }
  *out = nullptr;
  return E_NOINTERFACE;
}

ULONG DispatchServer::AddRef() {
  return static_cast<ULONG>(::InterlockedIncrement(&refs_));
}

ULONG DispatchServer::Release() {
  LONG left = ::InterlockedDecrement(&refs_);
  if (left == 0) delete this;
  return static_cast<ULONG>(left);
}

HRESULT DispatchServer::GetTypeInfoCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = 0;
  return S_OK;
}

HRESULT DispatchServer::GetTypeInfo(UINT, LCID, ITypeInfo** info) {
  if (info) *info = nullptr;
  return E_NOTIMPL;
}

namespace {
std::wstring upper(const wchar_t* name) {
  std::wstring out = name ? name : L"";
  for (auto& c : out) c = static_cast<wchar_t>(std::towupper(c));
  return out;
}
}  // namespace

void DispatchServer::addMember(const std::wstring& name, DISPID id) {
  members_[upper(name.c_str())] = id;
}

HRESULT DispatchServer::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (!names || !ids || count == 0) return E_INVALIDARG;
  HRESULT hr = S_OK;
  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  auto it = members_.find(upper(names[0]));
  if (it == members_.end()) return DISP_E_UNKNOWNNAME;
  ids[0] = it->second;
  if (count > 1) hr = DISP_E_UNKNOWNNAME;  // no named arguments
  return hr;
}

HRESULT DispatchServer::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                               VARIANT* result, EXCEPINFO* exception, UINT*) {
  if (result) ::VariantInit(result);
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  try {
    return invokeMember(id, flags, params ? params : &none, result);
  } catch (const RuntimeError& e) {
    if (exception) {
      *exception = EXCEPINFO{};
      exception->scode = e.number() > 0 && e.number() < 0x10000
                             ? MAKE_HRESULT(SEVERITY_ERROR, FACILITY_CONTROL, e.number())
                             : static_cast<SCODE>(e.number());
      exception->bstrDescription = ::SysAllocString(widen(e.description()).c_str());
      exception->bstrSource =
          ::SysAllocString(widen(e.source().empty() ? label() : e.source()).c_str());
    }
    return DISP_E_EXCEPTION;
  } catch (const std::exception& e) {
    if (exception) {
      *exception = EXCEPINFO{};
      exception->scode = E_FAIL;
      exception->bstrDescription = ::SysAllocString(widen(e.what()).c_str());
      exception->bstrSource = ::SysAllocString(widen(label()).c_str());
    }
    return DISP_E_EXCEPTION;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

Variant DispatchServer::argument(const DISPPARAMS* params, unsigned i) {
  const unsigned positional = params->cArgs - params->cNamedArgs;
  if (i >= positional) return Variant::missing();
  return Variant::copyOf(params->rgvarg[positional - 1 - i]);
}

Variant DispatchServer::assigned(const DISPPARAMS* params) {
  if (params->cArgs == 0) return Variant();
  return Variant::copyOf(params->rgvarg[0]);
}

}  // namespace dossync::win32
