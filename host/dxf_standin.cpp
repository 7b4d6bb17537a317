// The registry of stand-ins for custom entity classes in drawing files.
#include <map>

#include "host/dxf_internal.h"

namespace vantry::host {
namespace {

std::map<const AcRxClass *, DxfStandIn> &standIns() {
  static auto *m = new std::map<const AcRxClass *, DxfStandIn>();
  return *m;
}

}  // namespace

void registerDxfStandIn(AcRxClass *cls, DxfStandIn standIn) {
  if (cls) standIns()[cls] = std::move(standIn);
}

void removeDxfStandIn(AcRxClass *cls) {
  standIns().erase(cls);
}

const DxfStandIn *findDxfStandIn(const AcRxClass *cls) {
  if (standIns().empty()) return nullptr;
  for (; cls; cls = cls->myParent()) {
    auto it = standIns().find(cls);
    if (it != standIns().end()) return &it->second;
  }
  return nullptr;
}

const DxfStandIn *findDxfStandIn(const std::wstring &className) {
  if (standIns().empty() || className.empty()) return nullptr;
  return findDxfStandIn(acrxFindClass(className.c_str()));
}

}  // namespace vantry::host
