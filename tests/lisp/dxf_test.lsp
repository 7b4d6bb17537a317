;;; Drawings saved as drawing files and opened again, as a script sees them.
(test-file "dxf_test.lsp")

(defun dxf--last () (cdr (assoc 5 (entget (entlast)))))

;; Entity names differ between drawings: compare without them.
(defun dxf--strip (data)
  (vl-remove-if '(lambda (p) (member (car p) '(-1 330 340 350 360))) data))

(regapp "VT_APP")
(setq handles nil)
(defun dxf--make (data) (entmake data) (setq handles (cons (dxf--last) handles)))
(dxf--make '((0 . "LINE") (8 . "Ducts") (62 . 1) (10 0.5 0.25 0.0) (11 10.0 5.0 0.0)
             (-3 ("VT_APP" (1000 . "Zuluft 300x200") (1002 . "{") (1070 . 5) (1071 . 70000) (1040 . 2.5)
                  (1010 1.0 2.0 3.0) (1002 . "}")))))
(dxf--make '((0 . "CIRCLE") (10 5.0 5.0 0.0) (40 . 2.0) (62 . 3)))
(dxf--make '((0 . "ARC") (10 5.0 5.0 0.0) (40 . 3.0) (50 . 0.5) (51 . 2.0)))
(dxf--make '((0 . "LWPOLYLINE") (90 . 3) (70 . 1) (10 0.0 0.0) (42 . 0.5) (10 10.0 0.0) (10 10.0 10.0)))
(entmake '((0 . "POLYLINE") (66 . 1) (70 . 0)))
(entmake '((0 . "VERTEX") (10 0.0 0.0 0.0) (42 . 0.25)))
(entmake '((0 . "VERTEX") (10 5.0 5.0 0.0)))
(entmake '((0 . "VERTEX") (10 10.0 0.0 0.0)))
(entmake '((0 . "SEQEND")))
(setq handles (cons (dxf--last) handles))
(entmake '((0 . "POLYLINE") (66 . 1) (70 . 8)))
(entmake '((0 . "VERTEX") (10 0.0 0.0 0.0) (70 . 32)))
(entmake '((0 . "VERTEX") (10 5.0 5.0 5.0) (70 . 32)))
(entmake '((0 . "SEQEND")))
(setq handles (cons (dxf--last) handles))
(dxf--make '((0 . "MTEXT") (10 1.0 1.0 0.0) (40 . 2.5) (41 . 30.0) (1 . "Abluft\\P^ caret Ø 250 – x")))
(dxf--make '((0 . "LEADER") (10 0.0 0.0 0.0) (10 5.0 5.0 0.0) (10 8.0 5.0 0.0)))
(dxf--make '((0 . "3DFACE") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0) (12 1.0 1.0 0.0) (13 0.0 1.0 0.0) (70 . 5)))
(dxf--make '((0 . "CIRCLE") (67 . 1) (10 50.0 50.0 0.0) (40 . 20.0)))
(setq handles (reverse handles))
(setq before (mapcar '(lambda (h) (dxf--strip (entget (handent h) '("*")))) handles))

(setq path (strcat (getenv "TMP") "/dxf_test.dxf"))
(assert-equal "save as a drawing file" T (host:save-as path))
(assert-equal "the document takes the file's name" "dxf_test.dxf" (host:current-document))
(assert-equal "close it" T (host:close-document "dxf_test.dxf"))
(assert-equal "open it again" "dxf_test.dxf" (host:open-document path))
(assert-equal "every entity under its handle, as it was" before
              (mapcar '(lambda (h) (dxf--strip (entget (handent h) '("*")))) handles))
(assert-equal "the layer came along" "Ducts" (cdr (assoc 2 (tblsearch "LAYER" "Ducts"))))
(assert-equal "the application came along" "VT_APP" (cdr (assoc 2 (tblsearch "APPID" "VT_APP"))))

;; New entities get new handles: none of the old ones is taken again.
(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 1.0 0.0)))
(assert-true "a new handle" (not (member (dxf--last) handles)))
(assert-equal "save again" T (host:save))

;; A damaged file opens with what can be read; the transcript names the
;; lines dropped.
(setq bad (strcat (getenv "TMP") "/damaged.dxf"))
(setq f (open bad "w"))
(write-line "0" f)
(write-line "SECTION" f)
(write-line "2" f)
(write-line "ENTITIES" f)
(write-line "oops" f)
(close f)
(host:clear-transcript)
(assert-true "a damaged drawing opens" (host:open-document bad))
(assert-true "the transcript names the line"
             (vl-string-search "line 5: dropped, expected a group code, found \"oops\"" (host:transcript)))

;; What is no drawing file at all is refused with the line at fault.
(setq bad (strcat (getenv "TMP") "/notadrawing.dxf"))
(setq f (open bad "w"))
(write-line "hello" f)
(write-line "world" f)
(close f)
(host:clear-transcript)
(assert-equal "not a drawing: refused" nil (host:open-document bad))
(assert-true "the transcript names the line"
             (vl-string-search "line 1: not a drawing file" (host:transcript)))

;; A kind the host does not model (TEXT) is kept as its groups, and scripts
;; see it under its own type.
(setq other (strcat (getenv "TMP") "/text.dxf"))
(setq f (open other "w"))
(foreach l '("0" "SECTION" "2" "ENTITIES" "0" "TEXT" "5" "2B" "8" "NOTES" "10" "1.0" "20" "2.0" "30" "0.0"
             "40" "2.5" "1" "hello" "0" "ENDSEC" "0" "EOF")
  (write-line l f))
(close f)
(assert-true "a drawing with a TEXT opens" (host:open-document other))
(assert-equal "entget names its type" "TEXT" (cdr (assoc 0 (entget (handent "2B")))))
(assert-equal "its layer is the entity's" "NOTES" (cdr (assoc 8 (entget (handent "2B")))))
(assert-equal "a selection by type finds it" 1 (sslength (ssget "X" '((0 . "TEXT")))))

(test-done)
