;;; The module's point input, with the person's answers queued: prompts,
;;; keywords completed by the host, Enter refused where it must be, cancel
;;; as nil, and the one argument error.
(test-file "point_input_test.lsp")

(setq *wrong* "\nWrong type of arguments passed.\n")

;; Runs (fn args...) with the answers queued; gives (result transcript).
(defun answered (answers fn args / r)
  (host:clear-transcript)
  (if answers (host:queue-input answers))
  (setq r (vl-catch-all-apply fn args))
  (list (if (vl-catch-all-error-p r) (list 'error (vl-catch-all-error-message r)) r)
        (host:transcript)))

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))

(defun shows (text transcript) (vl-string-search text transcript))

;; How many times text occurs in transcript.
(defun count-of (text transcript / n at)
  (setq n 0 at 0)
  (while (setq at (vl-string-search text transcript at))
    (setq n (1+ n) at (+ at (strlen text))))
  n)

;;; Results: one case per row, (name answers function arguments expected).
(foreach c (list
  (list "a point without a prompt" '((1 2)) 'ol_ol-getPoint nil '(1.0 2.0 0.0))
  (list "a point typed" '("3,4,5") 'ol_ol-getPoint '("Where: ") '(3.0 4.0 5.0))
  (list "a number for a prompt is no error" '((7 8 9)) 'ol_ol-getPoint '(12) '(7.0 8.0 9.0))
  (list "cancel gives nil" '(cancel) 'ol_ol-getPoint '("Where: ") nil)
  (list "Enter gives nil" '(nil) 'ol_ol-getPoint '("Where: ") nil)
  (list "a point or a keyword: the point" '((5 6)) 'ol_ol-getPoint-withKWords '("Side: " "Left Right")
        '(5.0 6.0 0.0))
  (list "the keyword completed from its abbreviation" '("l") 'ol_ol-getPoint-withKWords
        '("Side: " "Left Right") "Left")
  (list "the keyword typed in full, any case" '("RIGHT") 'ol_ol-getPoint-withKWords
        '("Side: " "Left Right") "Right")
  (list "an abbreviation marked inside the word" '("x") 'ol_ol-getPoint-withKWords
        '("Next: " "Undo eXit") "eXit")
  (list "Enter is refused and asked again" '(nil nil (1 1)) 'ol_ol-getPoint-withKWords
        '("Side: " "Left Right") '(1.0 1.0 0.0))
  (list "a keyword longer than the buffer comes back cut" '("a")
        'ol_ol-getPoint-withKWords '("Opt: " "Abcdefghijklmnopqrstuvwxyz") "Abcdefghijklmnopqrs")
  (list "keywords cancelled" '(cancel) 'ol_ol-getPoint-withKWords '("Side: " "Left Right") nil)
  ;; The keyword reader looks again at the same non-string argument, so no
  ;; keyword is set: "u" is not a point and is asked again.
  (list "keywords not read past a non-string prompt" '("u" (2 3)) 'ol_ol-getPoint-withKWords
        '(5 "Up Down") '(2.0 3.0 0.0))
  (list "a corner" '((4 5 6)) 'ol_ol-getCorner '((1 1) "Other corner: ") '(4.0 5.0 6.0))
  (list "a corner from a base given as numbers" '((4 5)) 'ol_ol-getCorner '(1 2 "Other corner: ")
        '(4.0 5.0 0.0))
  (list "a corner without a prompt" '((9 9)) 'ol_ol-getCorner '((0 0 0)) '(9.0 9.0 0.0))
  (list "a corner cancelled" '(cancel) 'ol_ol-getCorner '((0 0)) nil))
  (assert-equal (car c) (nth 4 c) (car (answered (cadr c) (caddr c) (cadddr c)))))
(assert-equal "every answer was used" 0 (host:queue-input nil))

;;; What the person sees.
(setq seen (cadr (answered '((1 2)) 'ol_ol-getPoint '("Where is the riser: "))))
(assert-true "the caller's prompt is shown" (shows "Where is the riser: " seen))
(setq seen (cadr (answered '((1 2)) 'ol_ol-getPoint '(12))))
(assert-equal "a number for a prompt prompts with nothing" "1,2,0\n" seen)
(setq seen (cadr (answered '(nil "r") 'ol_ol-getPoint-withKWords '("Side: " "Left Right"))))
(assert-equal "Enter refused: the prompt again" 2 (count-of "Side: " seen))
(setq seen (cadr (answered '("u" (2 3)) 'ol_ol-getPoint-withKWords '(5 "Up Down"))))
(assert-true "text that is no keyword is refused" (shows "Invalid point." seen))
(setq seen (cadr (answered '((4 5)) 'ol_ol-getCorner '((1 1) "Other corner: "))))
(assert-true "the corner's prompt is shown" (shows "Other corner: " seen))

;;; The one error: a base point that cannot be read.
(foreach c (list
  (list "a corner without a base" nil)
  (list "a corner with a string for a base" '("base"))
  (list "a corner with one number for a base" '(1))
  (list "a corner with a list of strings" '(("a" "b"))))
  (assert-equal (car c) *wrong* (status-text 'ol_ol-getCorner (cadr c))))
(assert-equal "no answer was asked for after a bad base" 1 (host:queue-input '((0 0))))
(ol_ol-getPoint)

(test-done)
