lost : dialog {
  label = "Lost";
  : no_such_tile { key = "x"; }
  ok_only;
}
