dcl_settings : default_dcl_settings { audit_level = 3; }
careless : dialog {
  label = "Careless";
  : button { label = "No key"; }
  : edit_box { key = "w"; width = wide; }
  : toggle { key = "w"; }
  : retirement_button { key = "r"; label = "R"; fixed_width = true; }
  ok_only;
}
