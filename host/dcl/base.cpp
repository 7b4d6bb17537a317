// The definitions every DCL file sees without including anything: the exit
// buttons and their clusters, the error tile, the spacers and the settings
// tile. The primitive tiles (dialog, row, button ...) are built in and have
// no definition here. Written for this host from the tiles' documented keys,
// labels and roles.
#include "dcl/dcl.h"

namespace vantry::host::dcl {

const wchar_t *const kBaseDefinitions = LR"DCL(
default_dcl_settings : dcl_settings { audit_level = 1; }

spacer_0 : spacer { width = 0; height = 0; }
spacer_1 : spacer { width = 1; height = 1; }

default_button : button { is_default = true; }

retirement_button : button { fixed_width = true; width = 8; alignment = centered; }

ok_button : retirement_button { label = "OK"; key = "accept"; is_default = true; }
cancel_button : retirement_button { label = "Cancel"; key = "cancel"; is_cancel = true; }
help_button : retirement_button { label = "&Help..."; key = "help"; }
info_button : retirement_button { label = "&Info..."; key = "info"; }

errtile : text { label = ""; key = "error"; width = 35; }

ok_only : column {
  fixed_width = true;
  alignment = centered;
  : ok_button { is_cancel = true; }
}

ok_cancel : column {
  : row {
    fixed_width = true;
    alignment = centered;
    ok_button;
    : spacer { width = 2; }
    cancel_button;
  }
}

ok_cancel_help : column {
  : row {
    fixed_width = true;
    alignment = centered;
    ok_button;
    : spacer { width = 2; }
    cancel_button;
    : spacer { width = 2; }
    help_button;
  }
}

ok_cancel_help_info : column {
  : row {
    fixed_width = true;
    alignment = centered;
    ok_button;
    : spacer { width = 2; }
    cancel_button;
    : spacer { width = 2; }
    help_button;
    : spacer { width = 2; }
    info_button;
  }
}

ok_cancel_help_errtile : column {
  ok_cancel_help;
  errtile;
}
)DCL";

}  // namespace vantry::host::dcl
