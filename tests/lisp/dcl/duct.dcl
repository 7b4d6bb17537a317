// Dialogs of the dialog tests: a duct's layer and size, a nested options
// dialog, and one whose cancel button does not end it.
@include "common.dcl"

duct_size : dialog {
  label = "Duct size";
  initial_focus = "size";
  : boxed_column {
    label = "Duct";
    : popup_list { key = "layer"; label = "&Layer:"; edit_width = 16; }
    : edit_box { key = "size"; label = "&Size (mm):"; edit_width = 8; value = "200"; edit_limit = 6; }
    : boxed_radio_row {
      key = "shape";
      label = "Shape";
      : radio_button { key = "round"; label = "&Round"; value = "1"; }
      : radio_button { key = "rect"; label = "R&ectangular"; }
    }
    : toggle { key = "insulated"; label = "&Insulated"; }
  }
  : row {
    : list_box { key = "fittings"; label = "Fittings:"; height = 5; width = 24; multiple_select = true;
                 list = "Elbow\nTee\nReducer"; }
    : column {
      : image { key = "preview"; width = 12; aspect_ratio = 0.75; color = -2; }
      note_text;
      : slider { key = "angle"; min_value = 0; max_value = 90; value = "45"; }
    }
  }
  : button { key = "more"; label = "&More..."; fixed_width = true; }
  ok_cancel_help_errtile;
}

duct_options : dialog {
  label = "Options";
  : edit_box { key = "gauge"; label = "Gauge:"; value = "24"; }
  ok_cancel;
}

stubborn : dialog {
  label = "Stubborn";
  : button { key = "cancel"; label = "Cancel"; is_cancel = true; action = "(setq *stubborn-tried* T)"; }
}
