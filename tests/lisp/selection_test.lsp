;;; The module's selections and picks in a drawing built here: what a
;;; crossing window and a crossing polygon take, filters handed through,
;;; model-space scans that never see paper space, and the pick that retries
;;; after a miss. The person's answers are queued.
(test-file "selection_test.lsp")

(setq *wrong* "\nWrong type of arguments passed.\n")

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))

(defun make (data) (entmake data) (entlast))

;; Selections compared as sets: the handles, sorted.
(defun handles (names)
  (vl-sort (mapcar '(lambda (e) (cdr (assoc 5 (entget e)))) names) '<))

;; Runs (fn args...) with the answers queued; gives (result transcript).
(defun answered (answers fn args / r)
  (host:clear-transcript)
  (if answers (host:queue-input answers))
  (setq r (vl-catch-all-apply fn args))
  (list (if (vl-catch-all-error-p r) (list 'error (vl-catch-all-error-message r)) r)
        (host:transcript)))

(defun count-of (text transcript / n at)
  (setq n 0 at 0)
  (while (setq at (vl-string-search text transcript at))
    (setq n (1+ n) at (+ at (strlen text))))
  n)

;;; The drawing. The window used below runs from (0,0) to (10,10).
(setq inside (make '((0 . "LINE") (8 . "DUCTS") (10 1.0 1.0 0.0) (11 2.0 2.0 0.0)))
      across (make '((0 . "LINE") (8 . "PIPES") (10 5.0 5.0 0.0) (11 20.0 5.0 0.0)))
      outside (make '((0 . "LINE") (10 30.0 30.0 0.0) (11 40.0 40.0 0.0)))
      ring (make '((0 . "CIRCLE") (8 . "DUCTS") (10 8.0 8.0 0.0) (40 . 1.0)))
      far-ring (make '((0 . "CIRCLE") (10 50.0 50.0 0.0) (40 . 1.0)))
      ;; Around the whole window: its curve crosses nothing inside.
      hoop (make '((0 . "CIRCLE") (10 5.0 5.0 0.0) (40 . 30.0)))
      light (make '((0 . "LWPOLYLINE") (100 . "AcDbEntity") (100 . "AcDbPolyline") (90 . 2) (70 . 0)
                    (10 60.0 0.0) (10 70.0 0.0)))
      note (make '((0 . "MTEXT") (10 4.0 9.8 0.0) (40 . 0.5) (1 . "AHU-1"))))
(entmake '((0 . "POLYLINE") (66 . 1) (70 . 0) (10 0.0 0.0 0.0)))
(entmake '((0 . "VERTEX") (10 60.0 10.0 0.0)))
(entmake '((0 . "VERTEX") (10 70.0 10.0 0.0)))
(entmake '((0 . "SEQEND")))
(setq old-style (entlast))
;; A 3D polyline (flag 8, 3D vertices): not a light polyline either.
(entmake '((0 . "POLYLINE") (66 . 1) (70 . 8) (10 0.0 0.0 0.0)))
(entmake '((0 . "VERTEX") (70 . 32) (10 60.0 20.0 0.0)))
(entmake '((0 . "VERTEX") (70 . 32) (10 70.0 20.0 5.0)))
(entmake '((0 . "SEQEND")))
(setq spatial (entlast)
      paper-circle (make '((0 . "CIRCLE") (67 . 1) (10 5.0 5.0 0.0) (40 . 1.0)))
      paper-line (make '((0 . "LINE") (67 . 1) (10 1.0 1.0 0.0) (11 9.0 9.0 0.0))))
(setq model (list inside across outside ring far-ring hoop light note old-style spatial))

;;; Model-space scans, in database order.
(foreach c (list
  (list "every model-space entity" (ssgetX-all) model)
  (list "circles" (ssgetX-circle) (list ring far-ring hoop))
  (list "light polylines only, no old-style 2D or 3D one" (ssgetX-polyline) (list light))
  (list "no block references here" (ssgetX-block) nil)
  (list "no block of that name" (ssgetX-block "VALVE") nil)
  (list "extra arguments are ignored" (ssgetX-circle "x" 1) (list ring far-ring hoop)))
  (assert-equal (car c) (caddr c) (cadr c)))
(assert-true "the old-style polyline is in the drawing" (= "POLYLINE" (cdr (assoc 0 (entget old-style)))))
(assert-equal "the 3D polyline is one" 8 (logand 8 (cdr (assoc 70 (entget spatial)))))
(foreach e (list paper-circle paper-line)
  (assert-equal "paper space is never scanned" nil
                (or (member e (ssgetX-all)) (member e (ssgetX-circle)))))
(entdel ring)
(assert-equal "an erased circle is skipped" (list far-ring hoop) (ssgetX-circle))
(assert-equal "an erased entity is skipped" (vl-remove ring model) (ssgetX-all))
(entdel ring)

;;; Crossing windows and polygons, filters handed to the host unchanged.
(foreach c (list
  (list "a crossing window takes what crosses and what is inside"
        (ssgetC '(0 0) '(10 10)) (list inside across ring note))
  (list "corners in either order" (ssgetC '(10 10 0) '(0 0 0)) (list inside across ring note))
  (list "corners as numbers" (ssgetC 0 0 0 10 10 0) (list inside across ring note))
  (list "a window touching nothing" (ssgetC '(100 100) '(110 110)) nil)
  (list "a filter by type" (ssgetC '(0 0) '(10 10) '((0 . "CIRCLE"))) (list ring))
  (list "a filter by layer, wildcard" (ssgetC '(0 0) '(10 10) '((8 . "D*"))) (list inside ring))
  (list "a filter with a logical group"
        (ssgetC '(0 0) '(10 10) '((-4 . "<OR") (0 . "MTEXT") (8 . "PIPES") (-4 . "OR>")))
        (list across note))
  (list "a filter nothing passes" (ssgetC '(0 0) '(10 10) '((0 . "ARC"))) nil)
  (list "a crossing polygon" (ssgetCP '(0 0) '(12 0) '(0 12)) (list inside across))
  (list "a polygon round the far circle" (ssgetCP '(45 45) '(55 45) '(55 55) '(45 55)) (list far-ring)))
  (assert-equal (car c) (handles (caddr c)) (handles (cadr c))))
(assert-equal "the crossing window never takes paper space" nil
              (vl-remove-if-not '(lambda (e) (member e (list paper-circle paper-line))) (ssgetC '(0 0) '(10 10))))
(assert-equal "a malformed polygon: nil" nil (ssgetCP "corner"))
(assert-equal "a polygon of two points: nil" nil (ssgetCP '(0 0) '(10 10)))
(foreach c (list
  (list "no corners" nil)
  (list "one corner" '((0 0)))
  (list "a string for a corner" '("0,0" (10 10)))
  (list "a string for the second corner" '((0 0) "10,10"))
  ;; Numbers in a row make a 3D point when three follow: (0 0 10), then 10 alone.
  (list "four numbers" '(0 0 10 10)))
  (assert-equal (car c) *wrong* (status-text 'ssgetC (cadr c))))

;;; Interactive selection: prompts, keywords and filters.
(foreach c (list
  (list "a plain selection, picked" '((pick 1.5 1.5) nil) nil (list inside))
  (list "everything, filtered to lines" '("all" nil) (list nil nil nil '((0 . "LINE")))
        (list inside across outside))
  (list "a window with a filter" '("w" (0 0) (10 10) nil) (list "Pick ducts: " nil nil '((8 . "DUCTS")))
        (list inside ring))
  (list "a nil filter is no filter" '("w" (0 0) (10 10) nil) (list nil nil nil nil) (list inside ring note))
  (list "cancelled" '(cancel) (list "Pick ducts: ") nil))
  (assert-equal (car c) (handles (cadddr c)) (handles (car (answered (cadr c) 'ssgetPK (caddr c))))))
(setq seen (answered '((pick 1.5 1.5) nil) 'ssgetPK '("Pick ducts: " "Drop ducts: ")))
(assert-equal "the add prompt's selection" (list inside) (car seen))
(assert-true "the add prompt is shown" (vl-string-search "Pick ducts: " (cadr seen)))
(setq seen (answered '("EX") 'ssgetPK '(nil nil "EXit Undo")))
(assert-equal "a keyword ends the selection with nil" nil (car seen))
;; Both prompts and keywords (":$:K"): the add prompt, then the remove prompt
;; after "R"; a keyword typed by its abbreviation still ends the selection.
(setq seen (answered '((pick 1.5 1.5) (pick 8 7) "r" (pick 1.5 1.5) nil) 'ssgetPK
                     '("Pick ducts: " "Drop ducts: " "EXit Undo")))
(assert-equal "added two, removed one" (list ring) (car seen))
(assert-equal "the add prompt, once per pick and for R" 3 (count-of "Pick ducts: " (cadr seen)))
(assert-equal "the remove prompt, for the removal and Enter" 2 (count-of "Drop ducts: " (cadr seen)))
(assert-equal "not the host's own prompt" 0 (count-of "Select objects: " (cadr seen)))
(setq seen (answered '((pick 1.5 1.5) "ex") 'ssgetPK '("Pick ducts: " "Drop ducts: " "EXit Undo")))
(assert-equal "a keyword after a pick: nil" nil (car seen))
(assert-equal "the keyword was taken at the add prompt" 2 (count-of "Pick ducts: " (cadr seen)))
(setq seen (answered '((pick 1.5 1.5) nil) 'ssgetPK '("" "Drop ducts: " "EXit Undo")))
(assert-equal "an empty add prompt: the host's prompt" 2 (count-of "Select objects: " (cadr seen)))
(assert-equal "an empty add prompt still selects" (list inside) (car seen))
(assert-equal "every answer was used" 0 (host:queue-input nil))

;;; Picks.
(defun long-keyword (n / s)
  (setq s "A")
  (repeat (1- n) (setq s (strcat s "b")))
  s)
(setvar "ERRNO" 0)
(foreach c (list
  (list "a pick" '((pick 1.5 1.5)) '("Pick a duct: ") (list inside '(1.5 1.5 0.0)))
  (list "a missed pick is asked again" '((pick 100 -100) (pick 8 9)) '("Pick a duct: ")
        (list ring '(8.0 9.0 0.0)))
  (list "cancel gives nil" '(cancel) '("Pick a duct: ") nil)
  (list "a miss, then cancel" '((pick 100 -100) cancel) '("Pick a duct: ") nil)
  (list "a keyword, completed" '("x") '("Pick a duct: " "Undo eXit") "eXit")
  ;; 131 characters fit the fetch buffer, 132 do not.
  (list "a keyword that just fits" '("a") (list "Pick: " (long-keyword 131)) (long-keyword 131))
  (list "a keyword too long to fetch is an error" '("a") (list "Pick: " (long-keyword 132)) T)
  (list "Enter is an error other than a miss" '(nil) '("Pick a duct: ") T))
  (setvar "ERRNO" 0)
  (assert-equal (car c) (cadddr c) (car (answered (cadr c) 'ol_ol-entsel (caddr c)))))
(setq seen (answered '((pick 100 -100) (pick 200 -200) (pick 1.5 1.5)) 'ol_ol-entsel '("Pick a duct: ")))
(assert-equal "two misses, then a hit" inside (caar seen))
(assert-equal "the same prompt each time" 3 (count-of "Pick a duct: " (cadr seen)))
(foreach c (list
  (list "no prompt" nil)
  (list "a number for a prompt" '(1))
  (list "a list for a prompt" '(("Pick"))))
  (assert-equal (car c) *wrong* (status-text 'ol_ol-entsel (cadr c))))
(assert-equal "every answer was used" 0 (host:queue-input nil))

(test-done)
