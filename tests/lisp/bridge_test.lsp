;;; The bridge between LISP and external functions, through the test module.
(test-file "bridge_test.lsp")

;; Values arrive as the host converts them and come back unchanged.
(assert-equal "add reals" 3.5 (tm-add 1.5 2))
(assert-equal "add integers widened" 5.0 (tm-add 2 3))
(assert-equal "echo atoms" '(1 2.5 "s" T) (tm-echo 1 2.5 "s" T))
(assert-equal "echo nil" '(nil) (tm-echo nil))
(assert-equal "echo no argument" nil (tm-echo))
(assert-equal "echo nested list" '((1 (2 "x")) ("A" . "b")) (tm-echo '(1 (2 "x")) '("A" . "b")))
(assert-equal "echo point" '((1.0 2.0 3.0)) (tm-echo '(1 2 3)))
(assert-equal "echo 2d point" '((1.0 2.0)) (tm-echo '(1.0 2.0)))
;; A returned chain that is exactly one list is that list, not a list of it.
(assert-equal "echo entity data" '((0 . "LINE") (8 . "0") (10 1.0 2.0 0.0))
              (tm-echo '((0 . "LINE") (8 . "0") (10 1.0 2.0 0.0))))
(assert-equal "echo one list" '(1 2 3 4) (tm-echo '(1 2 3 4)))
;; Pairs keyed by a string, of every value a record's field can hold and of the shapes
;; that only look like them: a key alone, a list after the key, a dotted tail after two.
(setq pairs (list '("a" . 1) '("b" . 100000) '("c" . 2.5) '("d" . "text") (cons "e" T) '("f")
                  '("g" 1 2) '("h" 1 . 2) '("i" . (1.0 2.0 3.0)) '("j" ("k" . 1)) (cons "l" (entlast))
                  '(("m" . 1) . 2)))
(assert-equal "echo pairs of every kind" pairs (tm-echo pairs))
(assert-equal "echo the same pairs again" pairs (tm-echo pairs))
(assert-equal "echo big integer" '(100000 -32769 32767) (tm-echo 100000 -32769 32767))

;; The type codes of the nodes as the function sees them.
(assert-equal "types of atoms" '(5019 5021 5003 5010 5001 5005 5005)
              (tm-types nil T 7 70000 1.0 "a" 'sym))
(assert-equal "types of points" '(5002 5009) (tm-types '(1 2) '(1.0 2 3)))
(assert-equal "types of list and pair" '(5016 5003 5016 5003 5018 5003 5017 5017)
              (tm-types '(1 (2 . 3))))
(assert-equal "types of entity data" '(5016 0 10 40 5017)
              (tm-types '((0 . "CIRCLE") (10 0.0 0.0 0.0) (40 . 2.5))))
;; A pair whose value does not fit its group code travels as a plain list.
(assert-equal "types of a misfit pair" '(5016 5016 5003 5018 5003 5017 5017)
              (tm-types '((3 . 4))))

;; acutBuildList with every kind of node, read back by the host.
(assert-equal "built list"
              '(7 100000 2.5 "s" (1.0 2.0 3.0) ("k" . 1) ((0 . "LINE") (10 1.0 2.0 3.0)) T nil)
              (tm-build))

(assert-equal "void result" "" (vl-princ-to-string (tm-void)))
(assert-true "function code" (= (tm-code) 506))
(assert-equal "type of external" 'EXRXSUBR (type tm-add))

;; A function that answers RSERR makes the LISP call fail, catchably.
(assert-error "failing function" 'tm-fail nil "ADS request error")
(assert-error "wrong argument type" 'tm-add '("a" 1) "ADS request error")
(assert-true "failure message printed"
             (vl-string-search "tm-fail failed on purpose."
                               (capture-transcript '(lambda () (vl-catch-all-apply 'tm-fail nil)))))

;; acedInvoke reaches built-ins and user functions, and reports errors.
(defun twice (x) (* 2 x))
(assert-equal "invoke user function" 42 (tm-invoke "twice" 21))
(assert-equal "invoke built-in" '(1 2 3) (tm-invoke "list" 1 2 3))
(assert-equal "invoke failing" "RTERROR" (tm-invoke "car" 5))
(assert-equal "invoke undefined" "RTERROR" (tm-invoke "no-such-function"))
(assert-equal "invoke through external" 3.0 (tm-invoke "tm-add" 1 2))

(test-done)
