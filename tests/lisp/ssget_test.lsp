;;; Selection sets and picking as a LISP caller sees them: ssget's modes and
;;; filters, the set functions, entsel and nentsel, with queued answers.
(test-file "ssget_test.lsp")

(defun members (ss / i out)
  (setq i 0)
  (if ss (repeat (sslength ss) (setq out (cons (ssname ss i) out) i (1+ i))))
  (reverse out))

(entmake '((0 . "LAYER") (100 . "AcDbSymbolTableRecord") (100 . "AcDbLayerTableRecord")
           (2 . "DUCT") (70 . 0) (62 . 1)))
(entmake '((0 . "LINE") (8 . "DUCT") (10 0.0 0.0 0.0) (11 10.0 0.0 0.0)))
(setq a (entlast))
(entmake '((0 . "LINE") (10 0.0 5.0 0.0) (11 10.0 5.0 0.0)))
(setq b (entlast))
(entmake '((0 . "CIRCLE") (10 30.0 30.0 0.0) (40 . 1.0)))
(setq c (entlast))
;; Vertices above the window (0,0)-(10,10); the bulge dips to y = 7.5.
(entmake '((0 . "LWPOLYLINE") (100 . "AcDbEntity") (100 . "AcDbPolyline") (90 . 2) (70 . 0)
           (10 2.0 10.5) (42 . 1.0) (10 8.0 10.5) (42 . 0.0)))
(setq bulged (entlast))

;;; Modes without a person.
(foreach c (list
  (list "X, newest first" (members (ssget "X")) (list bulged c b a))
  (list "X with a filter" (members (ssget "_X" '((0 . "LINE")))) (list b a))
  (list "X with a layer pattern" (members (ssget "X" '((8 . "du*")))) (list a))
  (list "X with a grouping"
        (members (ssget "X" '((-4 . "<OR") (0 . "CIRCLE") (8 . "DUCT") (-4 . "OR>")))) (list c a))
  (list "crossing catches the bulge" (members (ssget "_C" '(0 0) '(10 10))) (list bulged b a))
  (list "window keeps what is inside" (members (ssget "W" '(-1 -1) '(11 6))) (list b a))
  (list "crossing with a filter" (members (ssget "C" '(0 0) '(10 10) '((0 . "LWPOLYLINE")))) (list bulged))
  (list "crossing polygon" (members (ssget "_CP" '((-1 -1) (11 -1) (11 1))))  (list a))
  (list "window polygon" (members (ssget "WP" '((28 28) (32 28) (32 32) (28 32)))) (list c))
  (list "last" (members (ssget "L")) (list bulged))
  (list "nothing found is nil" (ssget "X" '((0 . "ARC"))) nil)
  (list "entity at a point" (members (ssget '(5 0))) (list a))
  (list "previous" (members (ssget "P")) (list a)))
  (assert-equal (car c) (caddr c) (cadr c)))

(assert-error "unknown mode" 'ssget '("Q") "bad ssget mode string")
(assert-error "open grouping" 'ssget '("X" ((-4 . "<OR") (0 . "LINE"))) "bad SSGET list")
(assert-error "not a point list" 'ssget '("CP" ((0 0) "x" (1 1))) "bad SSGET list")
(assert-true "prints as a selection set"
             (wcmatch (vl-prin1-to-string (ssget "X")) "<Selection set: *>"))

;;; The set functions.
(setq ss (ssadd))
(assert-equal "a new set is empty" 0 (sslength ss))
(assert-equal "ssadd answers the set" ss (ssadd a ss))
(ssadd b ss)
(ssadd a ss)
(assert-equal "no duplicates" 2 (sslength ss))
(assert-equal "ssmemb" a (ssmemb a ss))
(assert-equal "ssdel" ss (ssdel a ss))
(assert-equal "gone" nil (ssmemb a ss))
(assert-equal "ssdel of a stranger" nil (ssdel c ss))
(assert-equal "ssname past the end" nil (ssname ss 5))
(assert-equal "ssname" b (ssname ss 0))
(assert-equal "ssadd of one" 1 (sslength (ssadd c)))
(assert-true "sslength of a name"
             (wcmatch (vl-catch-all-error-message (vl-catch-all-apply 'sslength (list a)))
                      "bad argument type: lselsetp <Entity name: *>"))

;;; The person's selection.
(host:queue-input '((pick 5 0) (-1 4) (11 6) "R" (pick 5 0) nil))
(assert-equal "pick, window, remove" (list b) (members (ssget)))
(host:queue-input '("_C" (12 11) (3 -1) nil))
(assert-equal "a typed crossing with a filter" (list a)
              (members (ssget '((8 . "DUCT")))))
(setq out (capture-transcript
            (lambda () (host:queue-input '((pick 5 5) nil))
                       (setq picked (ssget ":$" '("Pick ducts: " "Drop ducts: "))))))
(assert-equal "prompted" (list b) (members picked))
(assert-true "the prompt shows" (vl-string-search "Pick ducts: 5,5,0" out))
(host:queue-input '((pick 5 0) cancel))
(assert-error "cancel" 'ssget nil "Function cancelled")

;;; Picking one entity.
(host:queue-input '((pick 3 0.1)))
(setq e (entsel "Pick a duct: "))
(assert-equal "entsel" (list a '(3.0 0.1 0.0)) e)
(host:queue-input '((pick 3 2.5)))
(assert-equal "a miss" nil (entsel))
(assert-equal "ERRNO after a miss" 7 (getvar "ERRNO"))
(initget "Next Back")
(host:queue-input '("b"))
(assert-equal "a keyword completed" "Back" (entsel))
(host:queue-input '(cancel))
(assert-error "entsel cancelled" 'entsel nil "Function cancelled")
(host:queue-input '((pick 30 31)))
(assert-equal "nentsel of a plain entity" (list c '(30.0 31.0 0.0)) (nentsel))

;;; getkword completes an abbreviation.
(initget "LType eXit")
(host:queue-input '("lty"))
(assert-equal "getkword" "LType" (getkword "Option: "))

(test-done)
