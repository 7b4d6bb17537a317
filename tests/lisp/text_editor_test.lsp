;;; The multiline text editor answered by the scripted person.
(test-file "text_editor_test.lsp")

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))
(defun contents (e) (cdr (assoc 1 (entget e))))

(entmake '((0 . "MTEXT") (100 . "AcDbEntity") (100 . "AcDbMText") (10 0.0 0.0 0.0) (40 . 2.5) (1 . "Supply\\Pair")))
(setq m (entlast))

(host:queue-input '("Return air, 400 x 300"))
(host:clear-transcript)
(assert-equal "the new contents" "Return air, 400 x 300" (ed_editMultilineText m))
(assert-equal "set on the text" "Return air, 400 x 300" (contents m))
(assert-true "the editor showed the old contents" (vl-string-search "[Text editor] Supply\\Pair" (host:transcript)))

(host:queue-input '(cancel))
(assert-equal "cancelled: nil" nil (ed_editMultilineText m))
(assert-equal "unchanged" "Return air, 400 x 300" (contents m))
(assert-equal "nothing queued is a cancel" nil (ed_editMultilineText m))
(host:queue-input '("Return air, 400 x 300"))
(assert-equal "the same contents back: nil" nil (ed_editMultilineText m))

(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0)))
(assert-equal "a line is bad data" "\nBad data passed .\n" (status-text 'ed_editMultilineText (list (entlast))))
(assert-equal "no argument" "\nWrong type of arguments passed.\n" (status-text 'ed_editMultilineText nil))
(assert-equal "a string" "\nWrong type of arguments passed.\n" (status-text 'ed_editMultilineText '("m")))
(entdel m)
(assert-equal "an erased text: nil" nil (ed_editMultilineText m))

(test-done)
