;;; The language and session built-ins: the symbol table, the blackboard,
;;; functions kept as lists, tracing, error modes, unit conversion and file
;;; times.
(test-file "session_builtins_test.lsp")

;; atoms-family: defined symbols only, in either form.
(setq *af-defined* 1)
(assert-equal "atoms-family by names" '("CAR" nil "*AF-DEFINED*")
              (atoms-family 1 '("car" "af-never-set" "*af-defined*")))
(assert-equal "atoms-family as symbols" '(CAR nil) (atoms-family 0 '("CAR" "af-never-set")))
(assert-true "atoms-family 0 holds setq" (member 'SETQ (atoms-family 0)))
(assert-true "atoms-family 1 holds strings" (member "*AF-DEFINED*" (atoms-family 1)))
(assert-true "a symbol set to nil is gone" (progn (setq *af-defined* nil)
                                                (not (member "*AF-DEFINED*" (atoms-family 1)))))

;; The blackboard is apart from the document's namespace.
(setq bbvar 'doc)
(assert-equal "vl-bb-set answers the value" '(1 "two") (vl-bb-set 'bbvar '(1 "two")))
(assert-equal "vl-bb-ref" '(1 "two") (vl-bb-ref 'bbvar))
(assert-equal "the document's value is untouched" 'doc bbvar)
(assert-equal "unset blackboard name" nil (vl-bb-ref 'bb-never-set))
(assert-equal "vl-doc-set / vl-doc-ref" 7 (progn (vl-doc-set 'docvar 7) (vl-doc-ref 'docvar)))
(assert-error "vl-bb-set wants a symbol" 'vl-bb-set '("x" 1) "bad argument type: symbolp \"x\"")

;; defun-q keeps the function as a list that can be read and changed.
(defun-q dq-twice (x / y) (setq y (* 2 x)) y)
(assert-equal "defun-q-list-ref" '((X / Y) (setq y (* 2 x)) y) (defun-q-list-ref 'dq-twice))
(assert-equal "a defun-q function runs" 10 (dq-twice 5))
(assert-equal "mapcar over a defun-q function" '(2 4) (mapcar 'dq-twice '(1 2)))
(assert-equal "defun-q-list-set" 'DQ-TWICE (defun-q-list-set 'dq-twice '((x) (* 3 x))))
(assert-equal "the changed function" 12 (dq-twice 4))
(defun-q s::dq-startup () (setq *dq-ran* 1))
(defun-q-list-set 's::dq-startup (append (defun-q-list-ref 's::dq-startup) '((setq *dq-ran* (1+ *dq-ran*)))))
(assert-equal "appending to a defun-q body" 2 (s::dq-startup))
(assert-equal "defun-q-list-ref of a defun function" nil (defun-q-list-ref 'test-file))

;; trace prints each entry and result; untrace stops it.
(defun tr-fact (n) (if (< n 2) 1 (* n (tr-fact (1- n)))))
(assert-equal "trace answers the name" 'TR-FACT (trace tr-fact))
(setq *tr-out* (capture-transcript '(lambda () (tr-fact 2))))
(assert-equal "trace output" "Entering (TR-FACT 2)\nEntering (TR-FACT 1)\nResult: 1\nResult: 2\n" *tr-out*)
(assert-equal "untrace answers the name" 'TR-FACT (untrace tr-fact))
(assert-equal "untraced: nothing printed" "" (capture-transcript '(lambda () (tr-fact 3))))
(assert-equal "trace with nothing" nil (trace))

;; Error modes and the error-handler exits.
(assert-equal "*push-error-using-command*" T (*push-error-using-command*))
(assert-equal "*pop-error-mode*" T (*pop-error-mode*))
(assert-equal "*push-error-using-stack*" T (*push-error-using-stack*))
(*pop-error-mode*)
(assert-error "vl-exit-with-error outside a handler" 'vl-exit-with-error '("gone") "gone")

(assert-equal "pause is the backslash" "\\" pause)
(assert-true "ver" (wcmatch (ver) "Visual LISP #### (en)"))

;; cvunit
(assert-equal "inches to centimetres" 2.54 (cvunit 1 "inch" "cm"))
(assert-equal "plural names" 12.0 (cvunit 1 "feet" "inches"))
(assert-equal "a point" '(25.4 50.8 0.0) (cvunit '(1 2 0) "inch" "mm"))
(assert-equal "degrees to radians" pi (cvunit 180 "degree" "radian"))
(assert-equal "square feet to square metres" 0.09290304 (cvunit 1 "sq ft" "square meter"))
(assert-equal "cubic metres to litres" 1000.0 (cvunit 1 "cu m" "liter"))
(assert-equal "acres to hectares" 0.40468564224 (cvunit 1 "acre" "hectare"))
(assert-equal "celsius to fahrenheit" 212.0 (cvunit 100 "celsius" "fahrenheit"))
(assert-equal "fahrenheit to kelvin" 273.15 (cvunit 32 "fahrenheit" "kelvin"))
(assert-equal "incompatible units" nil (cvunit 1 "inch" "degree"))
(assert-equal "unknown unit" nil (cvunit 1 "furlongz" "inch"))
(assert-error "a string value" 'cvunit '("1" "inch" "cm") "bad argument type: numberp: \"1\"")

;; vl-file-systime and findtrustedfile
(setq *st-file* (vl-filename-mktemp "st" nil ".txt"))
(close (open *st-file* "w"))
(setq *st* (vl-file-systime *st-file*))
(assert-equal "systime has eight fields" 8 (length *st*))
(assert-true "systime year" (>= (car *st*) 2024))
(assert-true "systime weekday" (<= 0 (caddr *st*) 6))
(assert-equal "systime of a directory" nil (vl-file-systime (vl-filename-directory *st-file*)))
(assert-equal "systime of nothing" nil (vl-file-systime (strcat *st-file* ".none")))
(assert-true "findtrustedfile" (findtrustedfile *st-file*))
(vl-file-delete *st-file*)

(test-done)
