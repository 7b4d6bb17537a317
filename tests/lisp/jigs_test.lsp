;;; The module's jigs, ended by the person's queued answer: a point, an
;;; angle typed or shown by a point, a keyword, Enter or cancel. Entities end
;;; where the drag left them; anything but a value leaves them untouched.
;;; (Block references cannot be made from LISP here: their jig is tested in
;;; tests/module/drawing_selection_test.cpp.)
(test-file "jigs_test.lsp")

(setq *wrong* "\nWrong type of arguments passed.\n"
      *bad* "\nBad data passed .\n")

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))

(defun make (data) (entmake data) (entlast))
(defun dxf (code e) (cdr (assoc code (entget e))))
(defun ends (e) (list (dxf 10 e) (dxf 11 e)))

;; Runs (fn args...) with the answers queued; gives (result transcript).
(defun answered (answers fn args / r)
  (host:clear-transcript)
  (if answers (host:queue-input answers))
  (setq r (vl-catch-all-apply fn args))
  (list (if (vl-catch-all-error-p r) (list 'error (vl-catch-all-error-message r)) r)
        (host:transcript)))
(defun result (answers fn args) (car (answered answers fn args)))

;;; Rubber bands: the point comes back, nothing joins the drawing.
(setq last-before (entlast))
(foreach c (list
  (list "a rectangle's opposite corner" '((4 3)) 'RectangleJig '((1 1) "Corner: ") '(4.0 3.0 0.0))
  (list "a line's end point, 3D" '((4 3 2)) 'ol_ol-lineJig '((0 0 0)) '(4.0 3.0 2.0))
  (list "a line's end typed" '("@5,0,-2") 'ol_ol-lineJig '((1 1) "End: ") '(9.0 3.0 0.0))
  (list "a rectangle cancelled" '(cancel) 'RectangleJig '((1 1)) nil)
  (list "a keyword, completed" '("c") 'RectangleJig '((0 0) "Corner: " "Dimensions Cancel") "Cancel")
  (list "a keyword without a prompt" '("d") 'RectangleJig '((0 0) nil "Dimensions Cancel") "Dimensions"))
  (assert-equal (car c) (nth 4 c) (result (cadr c) (caddr c) (cadddr c))))
(assert-equal "rubber bands add nothing" last-before (entlast))
(assert-equal "Enter ends a drag with nil, asking nothing more" '(nil 1)
              (list (result '(nil (5 5)) 'ol_ol-lineJig '((0 0))) (host:queue-input nil)))
(assert-equal "the next drag takes the next answer" '(5.0 5.0 0.0) (ol_ol-lineJig '(0 0)))
(assert-true "the caller's prompt is shown"
             (vl-string-search "Corner: " (cadr (answered '((2 2)) 'RectangleJig '((0 0) "Corner: ")))))
(assert-true "a default prompt without one"
             (vl-string-search "Specify end point: " (cadr (answered '((2 2)) 'ol_ol-lineJig '((0 0))))))
(assert-true "text that is no keyword is asked again"
             (equal '(2.0 2.0 0.0) (result '("zz" (2 2)) 'ol_ol-lineJig '((0 0) "End: " "Close"))))

;;; Text placed by its location.
(setq label (make '((0 . "MTEXT") (10 1.0 1.0 0.0) (40 . 2.5) (1 . "SA 400x300"))))
(foreach c (list
  ;; name, answers, arguments after the text, result, location afterwards
  (list "placed at the point" '((10 5)) nil '(10.0 5.0 0.0) '(10.0 5.0 0.0))
  (list "cancel leaves it" '(cancel) '("Place label: ") nil '(10.0 5.0 0.0))
  (list "a keyword leaves it" '("u") '("Place label: " "Undo") "Undo" '(10.0 5.0 0.0))
  (list "placed again, in 3D" '((2 3 4)) '("Place label: ") '(2.0 3.0 4.0) '(2.0 3.0 4.0)))
  (assert-equal (car c) (cadddr c) (result (cadr c) 'ol_ol-textJig (cons label (caddr c))))
  (assert-equal (strcat (car c) ": location") (nth 4 c) (dxf 10 label)))
(assert-equal "the text is unchanged otherwise" "SA 400x300" (dxf 1 label))

;;; Rotation about a base point: a typed angle in degrees, or the direction
;;; from the base to a point.
(setq arm (make '((0 . "LINE") (10 0.0 0.0 0.0) (11 10.0 0.0 0.0))))
(foreach c (list
  ;; name, answers, base, result, ends afterwards
  (list "90 typed" '("90") '(0 0) (/ pi 2) '((0.0 0.0 0.0) (0.0 10.0 0.0)))
  (list "by a point below the base" '((0 -5)) '(0 0) (* 1.5 pi) '((0.0 0.0 0.0) (10.0 0.0 0.0)))
  (list "about another base" '("180") '(5 0) pi '((10.0 0.0 0.0) (0.0 0.0 0.0)))
  (list "cancel leaves it" '(cancel) '(0 0) nil '((10.0 0.0 0.0) (0.0 0.0 0.0)))
  (list "a keyword leaves it" '("r") '(0 0) "Reference" '((10.0 0.0 0.0) (0.0 0.0 0.0))))
  (assert-equal (car c) (cadddr c)
                (result (cadr c) 'ol_ol-rotateJig (list arm (caddr c) "Angle: " "Reference")))
  (assert-equal (strcat (car c) ": ends") (nth 4 c) (ends arm)))

;;; Several entities at once.
(setq a (make '((0 . "LINE") (10 1.0 0.0 0.0) (11 2.0 0.0 0.0)))
      b (make '((0 . "CIRCLE") (10 0.0 3.0 0.0) (40 . 1.0))))
(foreach c (list
  ;; name, function, answers, base, result, (line ends, circle centre) afterwards
  (list "turned half round" 'ol_ol-multiRotateJig '("180") '(0 0) pi
        '(((-1.0 0.0 0.0) (-2.0 0.0 0.0)) (0.0 -3.0 0.0)))
  (list "turning cancelled" 'ol_ol-multiRotateJig '(cancel) '(0 0) nil
        '(((-1.0 0.0 0.0) (-2.0 0.0 0.0)) (0.0 -3.0 0.0)))
  (list "moved by base to point" 'ol_ol-multiMoveJig '((5 5)) '(0 0) '(5.0 5.0 0.0)
        '(((4.0 5.0 0.0) (3.0 5.0 0.0)) (5.0 2.0 0.0)))
  (list "moved from another base" 'ol_ol-multiMoveJig '((2 0)) '(1 0) '(2.0 0.0 0.0)
        '(((5.0 5.0 0.0) (4.0 5.0 0.0)) (6.0 2.0 0.0)))
  (list "moving cancelled" 'ol_ol-multiMoveJig '(cancel) '(0 0) nil
        '(((5.0 5.0 0.0) (4.0 5.0 0.0)) (6.0 2.0 0.0)))
  (list "moving ended by a keyword" 'ol_ol-multiMoveJig '("b") '(0 0) "Base"
        '(((5.0 5.0 0.0) (4.0 5.0 0.0)) (6.0 2.0 0.0)))
  (list "a name twice moves once" 'ol_ol-multiMoveJig '((1 0)) '(0 0) '(1.0 0.0 0.0)
        '(((6.0 5.0 0.0) (5.0 5.0 0.0)) (7.0 2.0 0.0))))
  (assert-equal (car c) (nth 4 c)
                (result (caddr c) (cadr c)
                        (list (if (= (car c) "a name twice moves once") (list a b a) (list a b))
                              (cadddr c) nil "Base")))
  (assert-equal (strcat (car c) ": afterwards") (nth 5 c) (list (ends a) (dxf 10 b))))

;;; Bad arguments: nothing is asked and nothing moves.
(setq gone (make '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0))))
(entdel gone)
(foreach c (list
  (list "a text jig on a line" 'ol_ol-textJig (list arm) *bad*)
  (list "a text jig on an erased text" 'ol_ol-textJig (list gone) *bad*)
  (list "a text jig without a text" 'ol_ol-textJig nil *wrong*)
  (list "a text jig on a string" 'ol_ol-textJig '("label") *wrong*)
  (list "a block jig on a line" 'AcDbBlockReference::Jig (list arm) *bad*)
  (list "a block jig without a name" 'AcDbBlockReference::Jig nil *wrong*)
  (list "a rectangle without a base" 'RectangleJig nil *wrong*)
  (list "a line from a string" 'ol_ol-lineJig '("0,0") *wrong*)
  (list "a rotation without a base" 'ol_ol-rotateJig (list arm) *wrong*)
  (list "a rotation of an erased line" 'ol_ol-rotateJig (list gone '(0 0)) *bad*)
  (list "turning no entities" 'ol_ol-multiRotateJig '(nil (0 0)) *bad*)
  (list "turning a list of strings" 'ol_ol-multiRotateJig '(("a") (0 0)) *wrong*)
  (list "moving without a base" 'ol_ol-multiMoveJig (list (list a)) *wrong*)
  (list "moving an erased entity with others" 'ol_ol-multiMoveJig (list (list a gone) '(0 0)) *bad*))
  (assert-equal (car c) (cadddr c) (status-text (cadr c) (caddr c))))
(assert-equal "nothing moved by a refused call" '(((6.0 5.0 0.0) (5.0 5.0 0.0)) (7.0 2.0 0.0))
              (list (ends a) (dxf 10 b)))
(assert-equal "no answer was asked for" 0 (host:queue-input nil))

;;; The jig timer: one at most, its state kept.
(foreach c (list
  (list "stopping when none runs" 'ol_ol-killJigTimer nil nil)
  (list "starting" 'ol_ol-createJigTimer '(50) T)
  (list "starting again replaces it" 'ol_ol-createJigTimer '(20.7) T)
  (list "stopping" 'ol_ol-killJigTimer nil T)
  (list "stopping twice" 'ol_ol-killJigTimer nil nil))
  (assert-equal (car c) (cadddr c) (apply (cadr c) (caddr c))))
(foreach c (list
  (list "no interval" nil *wrong*)
  (list "an interval as text" '("50") *wrong*)
  (list "a zero interval" '(0) *bad*)
  (list "a negative interval" '(-5) *bad*))
  (assert-equal (car c) (caddr c) (status-text 'ol_ol-createJigTimer (cadr c))))
(assert-equal "a refused start starts nothing" nil (ol_ol-killJigTimer))

(test-done)
