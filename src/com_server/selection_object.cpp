#include "com_server/selection_object.h"

#include <string>

#include "base/error.h"
#include "com_server/module.h"
#include "platform/win32/automation.h"

namespace dossync::com {

namespace {

// Asked for by selectionOf to recognise our own objects (never handed to anyone else).
const IID IID_SelectionObject = {
    0x8b475f72, 0x34bd, 0x4aef, {0x8e, 0xa3, 0x25, 0x8f, 0xf2, 0x88, 0xca, 0x88}};

enum : DISPID { kItem = DISPID_VALUE, kAdd = 1, kCount, kRemove, kClear, kIndexOf, kIsEmpty };

class SelectionObject final : public win32::DispatchServer {
 public:
  explicit SelectionObject(std::shared_ptr<SelectionCollection> selection)
      : selection_(std::move(selection)) {
    addMember(L"Item", kItem);
    addMember(L"Add", kAdd);
    addMember(L"Count", kCount);
    addMember(L"Remove", kRemove);
    addMember(L"Clear", kClear);
    addMember(L"IndexOf", kIndexOf);
    addMember(L"IsEmpty", kIsEmpty);
  }
  const std::shared_ptr<SelectionCollection>& selection() const { return selection_; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (out && IsEqualIID(iid, IID_SelectionObject)) {
      *out = this;
      AddRef();
      return S_OK;
    }
    return DispatchServer::QueryInterface(iid, out);
  }

 protected:
  HRESULT invokeMember(DISPID id, WORD, DISPPARAMS* params, VARIANT* result) override {
    SelectionCollection& s = *selection_;
    win32::Variant answer;
    switch (id) {
      case kItem:
        answer = win32::Variant(itemText(position(params)));
        break;
      case kAdd: {
        std::string v = argument(params, 0).toString();
        s.add(v, v, v);
        break;
      }
      case kCount:
        answer = win32::Variant(s.count());
        break;
      case kRemove:
        s.remove(position(params));
        break;
      case kClear:
        s.clear();
        break;
      case kIndexOf: {
        std::string v = argument(params, 0).toString();
        int32_t found = -1;
        for (int m = 1; m <= 3; ++m) {
          int32_t at = s.indexOf(v, m);
          if (at >= 0 && (found < 0 || at < found)) found = at;
        }
        answer = win32::Variant(found < 0 ? -1 : found + 1);
        break;
      }
      case kIsEmpty:
        answer = win32::Variant(s.isEmpty());
        break;
      default:
        return DISP_E_MEMBERNOTFOUND;
    }
    if (result) VariantCopy(result, answer.get());
    return S_OK;
  }

 private:
  // The 0-based position an index argument (1-based) names; error 9 when there is no such item.
  int32_t position(DISPPARAMS* params) const {
    int32_t index = argument(params, 0).toInt32();
    if (index < 1 || index > selection_->count())
      throw RuntimeError(kSubscriptOutOfRange, "companyCollection has no item " +
                                                   std::to_string(index) + " (it holds " +
                                                   std::to_string(selection_->count()) + ")");
    return index - 1;
  }
  std::string itemText(int32_t position) const {
    for (const std::string& m : selection_->entries()[position])
      if (!m.empty()) return m;
    return "";
  }

  std::shared_ptr<SelectionCollection> selection_;
  ModuleReference module_;  // a host may keep the collection after the component
};

}  // namespace

IDispatch* newSelectionObject(std::shared_ptr<SelectionCollection> selection) {
  return new SelectionObject(std::move(selection));
}

std::shared_ptr<SelectionCollection> selectionOf(IDispatch* object) {
  SelectionObject* ours = nullptr;
  if (!object ||
      FAILED(object->QueryInterface(IID_SelectionObject, reinterpret_cast<void**>(&ours))))
    return nullptr;
  auto selection = ours->selection();
  ours->Release();
  return selection;
}

}  // namespace dossync::com
