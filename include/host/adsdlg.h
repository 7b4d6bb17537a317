// The host's programmable dialog boxes from C++ (a header of its own, as
// the host's SDK keeps it; it includes host/arx.h): the same DCL dialogs that
// LISP runs with load_dialog ... start_dialog, under the host's names for
// its C API, so that module functions can show a dialog of their own.
//
// A module loads a DCL file (ads_load_dialog), begins a dialog of it
// (ads_new_dialog, with a default callback or NULL), sets tiles up and
// gives tiles callbacks (ads_action_tile), then runs it (ads_start_dialog).
// Callbacks receive an ads_callback_packet; one of them ends the dialog
// with ads_done_dialog. The status comes back from ads_start_dialog.
// Everything answers RTNORM, or RTERROR when the dialog, the tile or the
// file is not there.
//
// Ownership: handles belong to the host and are good from ads_new_dialog
// until ads_start_dialog returns (the packet's value string only for the
// callback's length). Client data given to ads_client_data_tile stays the
// caller's; the host hands the pointer back in the packets.
//
// Headless, the scripted person answers the dialog as it answers LISP's
// (docs/dialogs.md).
#pragma once

#include "host/arx.h"

struct ads_dialog_s;
struct ads_tile_s;
typedef ads_dialog_s *ads_hdlg;
typedef ads_tile_s *ads_htile;

// What a callback is told: the dialog, the tile, the tile's value, the
// tile's client data, why (CBR_*), and for images where it was clicked.
struct ads_callback_packet {
  ads_hdlg dialog;
  ads_htile tile;
  ACHAR *value;
  void *client_data;
  int reason;
  long x, y;
};
typedef void (*CLIENTFUNC)(ads_callback_packet *cpkt);

// start_dialog's statuses; an application's own are 2 and above.
#define DLGCANCEL 0
#define DLGOK 1
#define DLGALLDONE -1
#define DLGSTATUS 2

// Callback reasons.
#define CBR_SELECT 1
#define CBR_LOST_FOCUS 2
#define CBR_DRAG 3
#define CBR_DOUBLE_CLICK 4

// mode_tile's modes.
#define MODE_ENABLE 0
#define MODE_DISABLE 1
#define MODE_SETFOCUS 2
#define MODE_SETSEL 3
#define MODE_FLIP 4

// start_list's operations.
#define LIST_CHANGE 1
#define LIST_APPEND 2
#define LIST_NEW 3

int ads_load_dialog(const ACHAR *dclfile, int *dcl_id);
int ads_unload_dialog(int dcl_id);
int ads_new_dialog(const ACHAR *dlgname, int dcl_id, CLIENTFUNC def_callback, ads_hdlg *hdlg);
int ads_new_positioned_dialog(const ACHAR *dlgname, int dcl_id, CLIENTFUNC def_callback, int x, int y,
                              ads_hdlg *hdlg);
int ads_start_dialog(ads_hdlg hdlg, int *status);
int ads_done_dialog(ads_hdlg hdlg, int status);
int ads_done_positioned_dialog(ads_hdlg hdlg, int status, int *x_result, int *y_result);
int ads_term_dialog();
int ads_action_tile(ads_hdlg hdlg, const ACHAR *key, CLIENTFUNC tilefunc);
int ads_set_tile(ads_hdlg hdlg, const ACHAR *key, const ACHAR *value);
// Copies at most maxlen characters, the terminating null included.
int ads_get_tile(ads_hdlg hdlg, const ACHAR *key, ACHAR *value, int maxlen);
int ads_get_attr(ads_hdlg hdlg, const ACHAR *key, const ACHAR *attr, ACHAR *value, int len);
int ads_get_attr_string(ads_htile tile, const ACHAR *attr, ACHAR *value, int len);
int ads_mode_tile(ads_hdlg hdlg, const ACHAR *key, short mode);
int ads_client_data_tile(ads_hdlg hdlg, const ACHAR *key, void *clientdata);
int ads_start_list(ads_hdlg hdlg, const ACHAR *key, short operation, short index);
int ads_add_list(const ACHAR *item);
int ads_end_list();
int ads_start_image(ads_hdlg hdlg, const ACHAR *key);
int ads_vector_image(short x1, short y1, short x2, short y2, short color);
int ads_fill_image(short x1, short y1, short width, short height, short color);
int ads_slide_image(short x1, short y1, short width, short height, const ACHAR *slnam);
int ads_end_image();
int ads_dimensions_tile(ads_hdlg hdlg, const ACHAR *key, short *cx, short *cy);
