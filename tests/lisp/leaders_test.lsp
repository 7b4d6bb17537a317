;;; The product's leaders: inserted, changed, exploded, and kept through a
;;; drawing file as the same leader.
(test-file "leaders_test.lsp")

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))
(setq *wrong* "\nWrong type of arguments passed.\n"
      *bad* "\nBad data passed .\n")
(defun points-of (e) (mapcar 'cdr (vl-remove-if-not '(lambda (g) (= (car g) 10)) (entget e))))
(defun group (code e) (cdr (assoc code (entget e))))

;; A block to place at the leader's end: a circle of radius 1.
(entmake '((0 . "BLOCK") (2 . "TAG") (70 . 0) (10 0.0 0.0 0.0)))
(entmake '((0 . "CIRCLE") (10 0.0 0.0 0.0) (40 . 1.0)))
(entmake '((0 . "ENDBLK")))
(entmake '((0 . "LAYER") (100 . "AcDbSymbolTableRecord") (100 . "AcDbLayerTableRecord") (2 . "ANNO") (70 . 0) (62 . 4)))
(setvar "CLAYER" "ANNO")

(setq l (ol_ol-leader-insert '((0.0 0.0 0.0) (5.0 5.0 0.0) (10.0 5.0 0.0)) "TAG" '(1.0 0.0 0.0)))
(assert-true "an entity name" (= (type l) 'ENAME))
(assert-equal "the points, tip first" '((0.0 0.0 0.0) (5.0 5.0 0.0) (10.0 5.0 0.0)) (points-of l))
(assert-equal "the block" "TAG" (group 2 l))
(assert-equal "the offset" '(1.0 0.0 0.0) (group 11 l))
(assert-equal "the current layer" "ANNO" (group 8 l))
(assert-equal "the arrow from DIMASZ" (* (getvar "DIMASZ") (getvar "DIMSCALE")) (group 40 l))
(assert-equal "its extents: from the tip to the block's circle"
              '(("min" 0.0 0.0 0.0) ("max" 12.0 6.0 0.0)) (AcDbEntity::getGeomExtents l))

(assert-equal "new points" T (ol_ol-leader-setPoints l '((1.0 1.0) (4.0 1.0))))
(assert-equal "kept, 2D points at z 0" '((1.0 1.0 0.0) (4.0 1.0 0.0)) (points-of l))
(assert-equal "a new offset" T (ol_ol-leader-setOffset l '(0.0 2.0 0.0)))
(assert-equal "kept" '(0.0 2.0 0.0) (group 11 l))
(assert-equal "no block" T (ol_ol-leader-setBlock l nil))
(assert-equal "none" nil (group 2 l))
(assert-equal "the block again" T (ol_ol-leader-setBlock l "tag"))
(assert-equal "a block that is not there: said, nil"
              "\nBlock \"NOPE\" not found.\n" (status-text 'ol_ol-leader-setBlock (list l "NOPE")))
(assert-equal "unchanged" "tag" (group 2 l))

;; Bad arguments and entities that are no leader.
(setq ln (progn (entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0))) (entlast)))
(foreach c (list
  (list "insert without points" 'ol_ol-leader-insert nil *wrong*)
  (list "one point" 'ol_ol-leader-insert '(((0.0 0.0 0.0))) *bad*)
  (list "two points the same" 'ol_ol-leader-insert '(((1.0 1.0) (1.0 1.0))) *bad*)
  (list "a string among the points" 'ol_ol-leader-insert '(((0.0 0.0) "x")) *wrong*)
  (list "a number for the block" 'ol_ol-leader-insert '(((0.0 0.0) (1.0 0.0)) 7) *wrong*)
  (list "a string for the offset" 'ol_ol-leader-insert '(((0.0 0.0) (1.0 0.0)) nil "up") *wrong*)
  (list "setPoints without points" 'ol_ol-leader-setPoints (list l) *wrong*)
  (list "setPoints on a line" 'ol_ol-leader-setPoints (list ln '((0.0 0.0) (1.0 0.0))) *bad*)
  (list "setPoints with one point" 'ol_ol-leader-setPoints (list l '((0.0 0.0))) *bad*)
  (list "setBlock without a block" 'ol_ol-leader-setBlock (list l) *wrong*)
  (list "setOffset without an offset" 'ol_ol-leader-setOffset (list l) *wrong*)
  (list "setOffset with a string" 'ol_ol-leader-setOffset (list l "x") *wrong*)
  (list "explode a line" 'ol_ol-leader-explode (list ln) *bad*)
  (list "explode nothing" 'ol_ol-leader-explode nil *wrong*))
  (assert-equal (car c) (caddr (cdr c)) (status-text (cadr c) (caddr c))))
(assert-equal "the leader is unchanged by them" '((1.0 1.0 0.0) (4.0 1.0 0.0)) (points-of l))
(assert-equal "a missing block at insert: said, nothing made"
              "\nBlock \"NOPE\" not found.\n"
              (status-text 'ol_ol-leader-insert '(((0.0 0.0) (1.0 0.0)) "NOPE")))

;; Through a drawing file: the same leader comes back.
(setq keep (ol_ol-leader-insert '((20.0 0.0 0.0) (25.0 3.0 0.0) (30.0 3.0 0.0)) "TAG" '(1.0 0.0 0.0))
      h (cdr (assoc 5 (entget keep)))
      before (entget keep)
      path (strcat (getenv "TMP") "/leaders_test.dxf"))
(assert-equal "saved" T (host:save-as path))
(assert-true "other programs see an INSERT of lines, a face and the block"
             (progn (setq f (open path "r") text "" line nil)
                    (while (setq line (read-line f)) (setq text (strcat text line "\n")))
                    (close f)
                    (and (vl-string-search "OLLeader" text) (vl-string-search "3DFACE" text)
                         (vl-string-search "\nTAG\n" text))))
(host:close-document "leaders_test.dxf")
(assert-equal "opened" "leaders_test.dxf" (host:open-document path))
(setq back (handent h))
(assert-equal "the same points" '((20.0 0.0 0.0) (25.0 3.0 0.0) (30.0 3.0 0.0)) (points-of back))
(assert-equal "the same block" "TAG" (group 2 back))
(assert-equal "the same offset" '(1.0 0.0 0.0) (group 11 back))
(assert-equal "the same layer" "ANNO" (group 8 back))
(assert-equal "still a leader: it changes" T (ol_ol-leader-setOffset back '(2.0 0.0 0.0)))

;; Exploded: lines, the arrowhead and the block reference, on its layer.
(setq parts (ol_ol-leader-explode back))
(assert-equal "four pieces" '("LINE" "LINE" "3DFACE" "INSERT")
              (mapcar '(lambda (e) (cdr (assoc 0 (entget e)))) parts))
(assert-equal "all on the leader's layer" '("ANNO" "ANNO" "ANNO" "ANNO")
              (mapcar '(lambda (e) (cdr (assoc 8 (entget e)))) parts))
(assert-equal "the block at the end plus the offset" '(32.0 3.0 0.0) (cdr (assoc 10 (entget (last parts)))))
(assert-equal "the leader is gone" nil (entget back))
(assert-equal "an erased leader: nil" nil (ol_ol-leader-setOffset back '(0.0 0.0 0.0)))

(test-done)
