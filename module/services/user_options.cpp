// The user options dialog and the photo licence.
//
//   (EditUserOptions [option])   the options in a grid (Option, Value,
//                                About); T when the person closed it with
//                                OK (the changes kept), nil on Cancel
//   (ol_photo-licenseDialog [file])  the licence terms of the photo
//                                functions (the file's text, or the
//                                product's own); T once accepted
//
// The options live in the options store (services.h). A value cleared in
// the dialog is removed, so its default applies again. Every value is
// checked before anything is written, and a write that fails puts back the
// values already written.
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "common/text.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "grid/grid.h"
#include "host/arx.h"
#include "host/person.h"
#include "services/services.h"

namespace vantry::lispfn {
namespace {

using grid::CellKind;
using grid::Refusal;

enum class OptionKind { Text, Address, Secret, Folder, Megabytes };

struct Option {
  const wchar_t *name;
  OptionKind kind;
  const wchar_t *about;
};

const Option kOptions[] = {
    {L"MailServer", OptionKind::Text, L"Mail server for error reports (host, host:port, smtp:// or smtps://)"},
    {L"MailTo", OptionKind::Address, L"Where error reports are sent"},
    {L"MailFrom", OptionKind::Address, L"Sender of error reports"},
    {L"MailUser", OptionKind::Text, L"Login at the mail server"},
    {L"MailPassword", OptionKind::Secret, L"Password at the mail server"},
    {L"BugReportFolder", OptionKind::Folder, L"Folder for error reports that were not sent"},
    {L"DownloadLimitMB", OptionKind::Megabytes, L"Largest download, in MB (1024)"},
    {L"ExtractLimitMB", OptionKind::Megabytes, L"Largest archive to extract, in MB (4096)"},
};

class OptionsDialog : public grid::GridDialog {
 public:
  explicit OptionsDialog(const std::wstring &only) : GridDialog(L"User Options") {
    grid.columns = {{L"Option", L"Option", CellKind::Text, {}, true, 16},
                    {L"Value", L"Value", CellKind::Text, {}, false, 30},
                    {L"About", L"About", CellKind::Text, {}, true, 50}};
    for (const Option &o : kOptions) {
      if (!only.empty() && !grid::sameName(only, o.name)) continue;
      int row = grid.addRow(-1);
      grid::Row &r = grid.rows[row];
      r.cells = {o.name, services::userOption(o.name), o.about};
      r.origin = int(&o - kOptions);
      if (o.kind == OptionKind::Secret) r.masked = 1;
      before_.push_back(r.cells[1]);
    }
  }

  // Writes the changed values; on a failure puts back those written. False
  // when a write failed.
  bool save() {
    std::vector<std::pair<const wchar_t *, std::wstring>> written;
    for (size_t r = 0; r < grid.rows.size(); ++r) {
      const std::wstring &value = grid.rows[r].cells[1];
      if (value == before_[r]) continue;
      const wchar_t *name = kOptions[grid.rows[r].origin].name;
      if (!store(name, value)) {
        for (auto &[n, old] : written) store(n, old);
        return false;
      }
      written.emplace_back(name, before_[r]);
    }
    return true;
  }

 protected:
  Refusal checkCell(int row, int, std::wstring &value) override {
    const Option &o = kOptions[grid.rows[row].origin];
    if (value.empty()) return std::nullopt;
    switch (o.kind) {
      case OptionKind::Address:
        if (value.find(L'@') == std::wstring::npos || value.find(L' ') != std::wstring::npos)
          return std::wstring(o.name) + L" must be a mail address, not \"" + value + L"\".";
        break;
      case OptionKind::Folder: {
        struct stat st;
        if (stat(text::nativePath(value).c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
          return std::wstring(o.name) + L": there is no folder \"" + value + L"\".";
        break;
      }
      case OptionKind::Megabytes: {
        bool digits = value.size() <= 7;
        for (wchar_t c : value) digits = digits && c >= L'0' && c <= L'9';
        if (!digits || std::stoul(value) < 1 || std::stoul(value) > 1048576)
          return std::wstring(o.name) + L" must be a whole number of MB from 1 to 1048576, not \"" + value + L"\".";
        value = std::to_wstring(std::stoul(value));
        break;
      }
      default:
        break;
    }
    return std::nullopt;
  }
  Refusal checkDelete(int) override { throw grid::CannotDo{L"options are not deleted; clear the value instead"}; }
  Refusal checkAdd(int) override { throw grid::CannotDo{L"the options are fixed"}; }

 private:
  static bool store(const wchar_t *name, const std::wstring &value) {
    if (!value.empty()) return services::writeSetting(services::kUserOptionsKey, name, value);
    HKEY k;
    LONG rc = RegOpenKeyExW(HKEY_CURRENT_USER, services::kUserOptionsKey, 0, KEY_WRITE, &k);
    if (rc == ERROR_FILE_NOT_FOUND) return true;
    if (rc != ERROR_SUCCESS) return false;
    rc = RegDeleteValueW(k, name);
    RegCloseKey(k);
    return rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND;
  }
  std::vector<std::wstring> before_;
};

const wchar_t kPhotoLicence[] =
    L"The photo functions place photographs and pictures supplied with the product in your drawings. "
    L"You may use them in drawings you make with the product and hand those drawings to others. You may "
    L"not sell or hand on the pictures themselves, alone or in a collection. They are supplied as they "
    L"are, without warranty.";

// FNV-1a of the terms' UTF-8 bytes, as 16 hex digits: what an acceptance
// is kept under, so that changed terms are asked again.
std::wstring termsChecksum(const std::wstring &terms) {
  uint64_t h = 1469598103934665603ull;
  for (unsigned char c : text::toUtf8(terms)) {
    h ^= c;
    h *= 1099511628211ull;
  }
  wchar_t buf[24];
  std::swprintf(buf, 24, L"%016llx", static_cast<unsigned long long>(h));
  return buf;
}

}  // namespace

int EditUserOptions() {
  acedRetNil();
  frame::ArgList args;
  std::wstring only;
  resbuf *&cur = args.cursor();
  if (cur && cur->restype != RTNIL) {
    if (!frame::readString(cur, only)) return 2;
    bool known = false;
    for (const Option &o : kOptions) known = known || grid::sameName(only, o.name);
    if (!known) return 3;
  }
  OptionsDialog d(only);
  if (!d.run()) return 0;
  if (!d.save()) {
    services::tell(L"EditUserOptions: the options could not be written; nothing was changed.");
    return 0;
  }
  acedRetT();
  return 0;
}

int ol_photo_licenseDialog() {
  acedRetNil();
  frame::ArgList args;
  std::wstring terms = kPhotoLicence, file;
  resbuf *&cur = args.cursor();
  if (cur && cur->restype != RTNIL) {
    if (!frame::readString(cur, file)) return 2;
    std::ifstream in(text::nativePath(file), std::ios::binary);
    std::stringstream body;
    if (in) body << in.rdbuf();
    if (!in || in.bad()) {
      services::tell(L"ol_photo-licenseDialog: the licence \"" + file + L"\" cannot be read.");
      return 0;
    }
    terms = text::fromUtf8(body.str());
  }
  std::wstring checksum = termsChecksum(terms);
  if (services::userOption(L"PhotoLicenseAccepted") == checksum) {
    acedRetT();
    return 0;
  }
  acutPrintf(L"\n[Photo Licence]\n%s\n  <Accept> <Decline>\n", terms.c_str());
  PersonWindow window;
  window.caption = L"Photo Licence";
  window.text = terms;
  window.buttons = {L"Accept", L"Decline"};
  std::wstring answer;
  if (!acedPersonAnswer(window, &answer)) return 0;
  std::wstring step = grid::unquote(answer);
  if (grid::sameName(step, L"accept") || grid::sameName(step, L"OK")) {
    if (!services::writeSetting(services::kUserOptionsKey, L"PhotoLicenseAccepted", checksum)) {
      services::tell(L"ol_photo-licenseDialog: the acceptance could not be kept in the options.");
      return 0;
    }
    acutPrintf(L"[Photo Licence] -> Accept\n");
    acedRetT();
    return 0;
  }
  if (!grid::sameName(step, L"decline") && !grid::sameName(step, L"cancel"))
    acutPrintf(L"[Photo Licence] cannot do \"%s\": the answers are accept and decline; the licence is declined\n",
               step.c_str());
  acutPrintf(L"[Photo Licence] -> Decline\n");
  return 0;
}

}  // namespace vantry::lispfn
