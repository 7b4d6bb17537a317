// The host's C API for programmable dialogs (include/host/adsdlg.h) over the
// running dialogs of dialog.cpp: a handle is the Dialog itself, a tile
// handle its TileState, and a C callback becomes an Action that fills a
// packet. Files loaded here share their ids with load_dialog's.
#include <cstring>

#include "dcl/dcl.h"
#include "host/adsdlg.h"
#include "session/session.h"

using namespace vantry::host::dcl;

namespace {

Dialog *dialogOf(ads_hdlg h) {
  for (auto &d : screen().stack)
    if (reinterpret_cast<ads_hdlg>(d.get()) == h) return d.get();
  return nullptr;
}

TileState *tileOf(ads_hdlg h, const ACHAR *key) {
  Dialog *d = dialogOf(h);
  return d && key ? d->find(key) : nullptr;
}

Action callbackAction(CLIENTFUNC fn) {
  if (!fn) return nullptr;
  return [fn](const Event &ev) {
    std::wstring value = ev.value;
    ads_callback_packet p{};
    p.dialog = reinterpret_cast<ads_hdlg>(ev.dialog);
    p.tile = reinterpret_cast<ads_htile>(ev.tile);
    p.value = value.data();
    p.client_data = ev.tile ? ev.tile->clientData : nullptr;
    p.reason = ev.reason;
    p.x = ev.x;
    p.y = ev.y;
    fn(&p);
  };
}

int copyOut(const std::wstring &s, ACHAR *out, int len) {
  if (!out || len <= 0) return RTERROR;
  size_t n = std::min(s.size(), size_t(len - 1));
  std::wmemcpy(out, s.data(), n);
  out[n] = 0;
  return RTNORM;
}

std::vector<std::wstring> searchPath() {
  std::vector<std::wstring> dirs;
  if (auto *doc = vantry::host::Session::get().current(); doc && doc->lisp().supportPath)
    for (std::wstring dir : doc->lisp().supportPath()) {
      if (!dir.empty() && dir.back() != L'/' && dir.back() != L'\\') dir += L'/';
      dirs.push_back(dir);
    }
  return dirs;
}

}  // namespace

int ads_load_dialog(const ACHAR *dclfile, int *dcl_id) {
  if (!dclfile || !dcl_id) return RTERROR;
  *dcl_id = loadDialogFile(dclfile, searchPath());
  return *dcl_id > 0 ? RTNORM : RTERROR;
}

int ads_unload_dialog(int dcl_id) { return screen().files.erase(dcl_id) ? RTNORM : RTERROR; }

int ads_new_positioned_dialog(const ACHAR *dlgname, int dcl_id, CLIENTFUNC def_callback, int x, int y,
                              ads_hdlg *hdlg) {
  if (!dlgname || !hdlg) return RTERROR;
  Dialog *d = newDialog(dlgname, dcl_id, callbackAction(def_callback), x, y);
  *hdlg = reinterpret_cast<ads_hdlg>(d);
  return d ? RTNORM : RTERROR;
}

int ads_new_dialog(const ACHAR *dlgname, int dcl_id, CLIENTFUNC def_callback, ads_hdlg *hdlg) {
  return ads_new_positioned_dialog(dlgname, dcl_id, def_callback, -1, -1, hdlg);
}

int ads_start_dialog(ads_hdlg hdlg, int *status) {
  Dialog *d = dialogOf(hdlg);
  std::optional<int> s = d && status ? startDialog(d) : std::nullopt;
  if (!s) return RTERROR;
  *status = *s;
  return RTNORM;
}

int ads_done_positioned_dialog(ads_hdlg hdlg, int status, int *x_result, int *y_result) {
  Dialog *d = dialogOf(hdlg);
  return d && doneDialog(d, status, x_result, y_result) ? RTNORM : RTERROR;
}

int ads_done_dialog(ads_hdlg hdlg, int status) { return ads_done_positioned_dialog(hdlg, status, nullptr, nullptr); }

int ads_term_dialog() {
  termDialogs();
  return RTNORM;
}

int ads_action_tile(ads_hdlg hdlg, const ACHAR *key, CLIENTFUNC tilefunc) {
  TileState *t = tileOf(hdlg, key);
  if (!t) return RTERROR;
  t->action = callbackAction(tilefunc);
  return RTNORM;
}

int ads_set_tile(ads_hdlg hdlg, const ACHAR *key, const ACHAR *value) {
  TileState *t = tileOf(hdlg, key);
  if (!t || !value) return RTERROR;
  dialogOf(hdlg)->setValue(*t, value);
  return RTNORM;
}

int ads_get_tile(ads_hdlg hdlg, const ACHAR *key, ACHAR *value, int maxlen) {
  TileState *t = tileOf(hdlg, key);
  return t ? copyOut(dialogOf(hdlg)->value(*t), value, maxlen) : RTERROR;
}

int ads_get_attr_string(ads_htile tile, const ACHAR *attr, ACHAR *value, int len) {
  auto *t = reinterpret_cast<TileState *>(tile);
  const Attribute *a = t && attr ? t->tile->attr(attr) : nullptr;
  return a ? copyOut(a->value, value, len) : RTERROR;
}

int ads_get_attr(ads_hdlg hdlg, const ACHAR *key, const ACHAR *attr, ACHAR *value, int len) {
  return ads_get_attr_string(reinterpret_cast<ads_htile>(tileOf(hdlg, key)), attr, value, len);
}

int ads_mode_tile(ads_hdlg hdlg, const ACHAR *key, short mode) {
  TileState *t = tileOf(hdlg, key);
  if (!t || mode < MODE_ENABLE || mode > MODE_FLIP) return RTERROR;
  if (mode == MODE_ENABLE || mode == MODE_DISABLE) t->enabled = mode == MODE_ENABLE;
  return RTNORM;
}

int ads_client_data_tile(ads_hdlg hdlg, const ACHAR *key, void *clientdata) {
  TileState *t = tileOf(hdlg, key);
  if (!t) return RTERROR;
  t->clientData = clientdata;
  return RTNORM;
}

int ads_start_list(ads_hdlg hdlg, const ACHAR *key, short operation, short index) {
  return startList(tileOf(hdlg, key), operation, index) ? RTNORM : RTERROR;
}
int ads_add_list(const ACHAR *item) { return item && addList(item) ? RTNORM : RTERROR; }
int ads_end_list() {
  endList();
  return RTNORM;
}

int ads_start_image(ads_hdlg hdlg, const ACHAR *key) { return startImage(tileOf(hdlg, key)) ? RTNORM : RTERROR; }
int ads_vector_image(short x1, short y1, short x2, short y2, short color) {
  return addImage({ImageOp::Vector, x1, y1, x2, y2, color, L""}) ? RTNORM : RTERROR;
}
int ads_fill_image(short x1, short y1, short width, short height, short color) {
  return addImage({ImageOp::Fill, x1, y1, width, height, color, L""}) ? RTNORM : RTERROR;
}
int ads_slide_image(short x1, short y1, short width, short height, const ACHAR *slnam) {
  return addImage({ImageOp::Slide, x1, y1, width, height, 0, slnam ? slnam : L""}) ? RTNORM : RTERROR;
}
int ads_end_image() {
  endImage();
  return RTNORM;
}

int ads_dimensions_tile(ads_hdlg hdlg, const ACHAR *key, short *cx, short *cy) {
  TileState *t = tileOf(hdlg, key);
  if (!t || !cx || !cy) return RTERROR;
  *cx = short(t->tile->width);
  *cy = short(t->tile->height);
  return RTNORM;
}
