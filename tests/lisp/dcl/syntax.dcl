broken : dialog {
  label = "Broken";
  : button { key = "b" label = "B"; }
  ok_only;
}
