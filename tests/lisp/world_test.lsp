;;; Blocks with attributes, text, table records and the drawing's current
;;; values, made from LISP, saved, and opened again.
(test-file "world_test.lsp")

(defun world--get (code e) (cdr (assoc code (entget e))))

;;; A block definition with an attribute definition, then a reference with
;;; its attribute.

(assert-equal "BLOCK starts a definition" '((0 . "BLOCK") (2 . "VALVE") (10 0.0 0.0 0.0) (70 . 2))
              (entmake '((0 . "BLOCK") (2 . "VALVE") (10 0.0 0.0 0.0) (70 . 2))))
(assert-true "a line inside it" (entmake '((0 . "LINE") (10 -1.0 0.0 0.0) (11 1.0 0.0 0.0))))
(assert-true "a circle inside it" (entmake '((0 . "CIRCLE") (10 0.0 0.0 0.0) (40 . 0.5))))
(assert-true "an attribute definition inside it"
             (entmake '((0 . "ATTDEF") (10 0.0 1.0 0.0) (40 . 0.25) (1 . "DN50") (3 . "Size?") (2 . "SIZE") (70 . 0))))
(assert-equal "nothing of the block is in model space yet" nil (entlast))
(assert-equal "ENDBLK answers the block's name" "VALVE" (entmake '((0 . "ENDBLK"))))
(setq blk (tblsearch "BLOCK" "VALVE"))
(assert-equal "the block is in the table" "VALVE" (cdr (assoc 2 blk)))
(assert-equal "model space is still empty" nil (entlast))

;; entnext walks the definition and stops at its end.
(setq first (cdr (assoc -2 blk)))
(assert-equal "first entity of the block" "LINE" (world--get 0 first))
(assert-equal "second" "CIRCLE" (world--get 0 (entnext first)))
(assert-equal "third" "ATTDEF" (world--get 0 (entnext (entnext first))))
(assert-equal "the walk ends inside the block" nil (entnext (entnext (entnext first))))
(assert-equal "the attribute definition's tag" "SIZE" (world--get 2 (entnext (entnext first))))

;; A reference with (66 . 1), its attribute and the end marker.
(entmake '((0 . "INSERT") (2 . "VALVE") (66 . 1) (10 10.0 5.0 0.0)))
(assert-equal "the reference waits for its attributes" nil (entlast))
(assert-true "the attribute"
             (entmake '((0 . "ATTRIB") (10 10.0 6.0 0.0) (40 . 0.25) (1 . "DN80") (2 . "SIZE") (70 . 0))))
(assert-true "the end marker" (entmake '((0 . "SEQEND"))))
(setq ins (entlast))
(assert-equal "the reference is made" "INSERT" (world--get 0 ins))
(assert-equal "it says attributes follow" 1 (world--get 66 ins))
(setq att (entnext ins))
(assert-equal "entnext gives its attribute" '("ATTRIB" "SIZE" "DN80")
              (list (world--get 0 att) (world--get 2 att) (world--get 1 att)))
(assert-equal "then the end marker" "SEQEND" (world--get 0 (entnext att)))
(assert-equal "the attribute changes through entmod" "DN100"
              (progn (entmod (subst '(1 . "DN100") (assoc 1 (entget att)) (entget att))) (world--get 1 att)))

;; Refusals: an ATTRIB without an INSERT, a block sequence with bad data is
;; dropped whole, a BLOCK inside a BLOCK.
(assert-equal "an ATTRIB alone is refused" nil
              (entmake '((0 . "ATTRIB") (10 0.0 0.0 0.0) (40 . 1.0) (1 . "x") (2 . "T"))))
(entmake '((0 . "BLOCK") (2 . "HALF") (10 0.0 0.0 0.0) (70 . 0)))
(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0)))
(assert-equal "bad data inside a block is refused" nil (entmake '((0 . "CIRCLE") (10 0.0 0.0 0.0))))
(assert-equal "and the ENDBLK after it finds no block" nil (entmake '((0 . "ENDBLK"))))
(assert-equal "the half-made block is not in the drawing" nil (tblsearch "BLOCK" "HALF"))
(assert-equal "entmake with no argument ends a sequence" nil
              (progn (entmake '((0 . "BLOCK") (2 . "GONE") (10 0.0 0.0 0.0) (70 . 0))) (entmake)))
(assert-equal "so ENDBLK finds nothing" nil (entmake '((0 . "ENDBLK"))))

;; An anonymous block gets a *U name.
(entmake '((0 . "BLOCK") (2 . "*ANON") (10 0.0 0.0 0.0) (70 . 1)))
(entmake '((0 . "POINT") (10 1.0 2.0 0.0)))
(setq anon (entmake '((0 . "ENDBLK"))))
(assert-true "an anonymous block is named *U..." (wcmatch anon "`*U#*"))

;;; Text and the other kinds.

(assert-true "TEXT" (entmake '((0 . "TEXT") (10 0.0 20.0 0.0) (40 . 2.5) (1 . "Supply air") (50 . 0.5))))
(setq txt (entlast))
(assert-equal "its value and height" '("Supply air" 2.5 "Standard")
              (list (world--get 1 txt) (world--get 40 txt) (world--get 7 txt)))
(assert-equal "its rotation in radians" 0.5 (world--get 50 txt))
(assert-equal "TEXT without a value is refused" nil (entmake '((0 . "TEXT") (10 0.0 0.0 0.0) (40 . 2.5))))
(assert-equal "TEXT naming an unknown style is refused" nil
              (entmake '((0 . "TEXT") (10 0.0 0.0 0.0) (40 . 2.5) (1 . "x") (7 . "NO-SUCH-STYLE"))))
(assert-true "POINT" (entmake '((0 . "POINT") (10 3.0 4.0 0.0))))
(assert-true "SOLID" (entmake '((0 . "SOLID") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0) (12 0.0 1.0 0.0) (13 1.0 1.0 0.0))))
(assert-true "ELLIPSE" (entmake '((0 . "ELLIPSE") (100 . "AcDbEntity") (100 . "AcDbEllipse") (10 30.0 0.0 0.0)
                                  (11 4.0 0.0 0.0) (210 0.0 0.0 1.0) (40 . 0.5) (41 . 0.0) (42 . 6.283185307179586))))
(setq ell (entlast))
(assert-true "an ellipse is a curve: its length" (< 19.37 (vlax-curve-getDistAtParam ell (vlax-curve-getEndParam ell)) 19.39))
(assert-equal "an ellipse with a ratio above 1 is refused" nil
              (entmake '((0 . "ELLIPSE") (10 0.0 0.0 0.0) (11 4.0 0.0 0.0) (40 . 2.0))))
(assert-true "SPLINE" (entmake '((0 . "SPLINE") (100 . "AcDbEntity") (100 . "AcDbSpline") (70 . 8) (71 . 3)
                                 (72 . 8) (73 . 4) (74 . 0) (40 . 0.0) (40 . 0.0) (40 . 0.0) (40 . 0.0)
                                 (40 . 1.0) (40 . 1.0) (40 . 1.0) (40 . 1.0)
                                 (10 0.0 0.0 0.0) (10 1.0 2.0 0.0) (10 3.0 2.0 0.0) (10 4.0 0.0 0.0))))
(setq spl (entlast))
(assert-equal "a cubic Bezier's middle" '(2.0 1.5 0.0) (vlax-curve-getPointAtParam spl 0.5))
(assert-equal "a spline whose knots do not count up is refused" nil
              (entmake '((0 . "SPLINE") (71 . 3) (40 . 0.0) (10 0.0 0.0 0.0) (10 1.0 2.0 0.0))))
(assert-true "XLINE" (entmake '((0 . "XLINE") (10 0.0 0.0 0.0) (11 2.0 0.0 0.0))))
(assert-equal "its direction is a unit vector" '(1.0 0.0 0.0) (world--get 11 (entlast)))
(assert-true "HATCH"
             (entmake '((0 . "HATCH") (100 . "AcDbEntity") (100 . "AcDbHatch") (10 0.0 0.0 0.0) (210 0.0 0.0 1.0)
                        (2 . "SOLID") (70 . 1) (71 . 0) (91 . 1) (92 . 2) (72 . 0) (73 . 1) (93 . 4)
                        (10 40.0 0.0) (10 50.0 0.0) (10 50.0 10.0) (10 40.0 10.0) (97 . 0)
                        (75 . 1) (76 . 1) (98 . 0))))
(setq hat (entlast))
(assert-equal "the hatch's pattern and loops" '("SOLID" 1 1) (list (world--get 2 hat) (world--get 70 hat) (world--get 91 hat)))
(assert-equal "a hatch whose loop count is wrong is refused" nil
              (entmake '((0 . "HATCH") (100 . "AcDbEntity") (100 . "AcDbHatch") (2 . "SOLID") (70 . 1) (91 . 2)
                         (92 . 2) (72 . 0) (73 . 1) (93 . 0) (97 . 0) (75 . 1) (76 . 1))))

;;; Table records.

(assert-true "LAYER" (entmake '((0 . "LAYER") (100 . "AcDbSymbolTableRecord") (100 . "AcDbLayerTableRecord")
                                (2 . "M-PIPE") (70 . 0) (62 . 5) (6 . "Continuous"))))
(assert-equal "the layer is in the table with its colour" 5 (cdr (assoc 62 (tblsearch "LAYER" "M-PIPE"))))
(assert-equal "a second layer of that name is refused" nil (entmake '((0 . "LAYER") (2 . "m-pipe") (70 . 0))))
(assert-true "STYLE" (entmake '((0 . "STYLE") (2 . "NOTES") (70 . 0) (40 . 0.0) (41 . 0.8) (3 . "romans.shx"))))
(assert-true "LTYPE" (entmake '((0 . "LTYPE") (2 . "HIDDEN2") (70 . 0) (3 . "Hidden") (72 . 65) (73 . 0) (40 . 0.0))))
(assert-true "APPID" (entmake '((0 . "APPID") (2 . "VT_WORLD") (70 . 0))))
(assert-true "DIMSTYLE" (entmake '((0 . "DIMSTYLE") (2 . "DUCT") (70 . 0) (40 . 50.0))))
(assert-equal "the new dimension style" "DUCT" (cdr (assoc 2 (tblsearch "DIMSTYLE" "duct"))))
(assert-equal "the drawing's own dimension style" "Standard" (cdr (assoc 2 (tblsearch "DIMSTYLE" "Standard"))))
(assert-equal "the active viewport" "*Active" (cdr (assoc 2 (tblsearch "VPORT" "*Active"))))
(assert-equal "a record name that is not valid is refused" nil (entmake '((0 . "LAYER") (2 . "a<b") (70 . 0))))

;;; The current values.

(assert-equal "CLAYER starts at 0" "0" (getvar "CLAYER"))
(assert-equal "CLAYER takes a layer of the drawing" "M-PIPE" (setvar "CLAYER" "M-PIPE"))
(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 1.0 0.0)))
(assert-equal "new entities go to it" "M-PIPE" (world--get 8 (entlast)))
(assert-error "a layer that does not exist is refused" 'setvar '("CLAYER" "NO-SUCH-LAYER")
              "AutoCAD variable setting rejected: \"CLAYER\" \"NO-SUCH-LAYER\"")
(assert-equal "and the current layer stays" "M-PIPE" (getvar "CLAYER"))
(setvar "CECOLOR" "3")
(setvar "CELTSCALE" 2.0)
(entmake '((0 . "CIRCLE") (10 0.0 0.0 0.0) (40 . 1.0)))
(assert-equal "new entities take CECOLOR and CELTSCALE" '(3 2.0) (list (world--get 62 (entlast)) (world--get 48 (entlast))))
(setvar "CECOLOR" "BYLAYER")
(setvar "CELTSCALE" 1.0)
(assert-error "a colour that is none is refused" 'setvar '("CECOLOR" "300")
              "AutoCAD variable setting rejected: \"CECOLOR\" \"300\"")
(setvar "TEXTSTYLE" "NOTES")
(setvar "TEXTSIZE" 3.5)
(setvar "INSBASE" '(1.0 2.0 0.0))
(setvar "PICKSTYLE" 0)
(assert-error "TEXTSIZE must be above 0" 'setvar '("TEXTSIZE" 0.0)
              "AutoCAD variable setting rejected: \"TEXTSIZE\" 0.0")

;;; Saved and opened again.

(setq path (strcat (getenv "TMP") "/world_test.dxf"))
(assert-equal "save" T (host:save-as path))
(assert-equal "close" T (host:close-document "world_test.dxf"))
(assert-equal "open again" "world_test.dxf" (host:open-document path))
(assert-equal "the current values come back" '("M-PIPE" "NOTES" 3.5 (1.0 2.0 0.0) 0)
              (mapcar 'getvar '("CLAYER" "TEXTSTYLE" "TEXTSIZE" "INSBASE" "PICKSTYLE")))
(setq ins (ssname (ssget "X" '((0 . "INSERT"))) 0))
(setq att (entnext ins))
(assert-equal "the reference keeps its attribute" '("ATTRIB" "SIZE" "DN100")
              (list (world--get 0 att) (world--get 2 att) (world--get 1 att)))
(assert-equal "and its end marker" "SEQEND" (world--get 0 (entnext att)))
(assert-equal "the block keeps its definition" "ATTDEF"
              (world--get 0 (entnext (entnext (cdr (assoc -2 (tblsearch "BLOCK" "VALVE")))))))
(assert-equal "every kind comes back"
              '("ELLIPSE" "HATCH" "POINT" "SOLID" "SPLINE" "TEXT" "XLINE")
              (vl-sort (mapcar '(lambda (k) (if (ssget "X" (list (cons 0 k))) k))
                               '("ELLIPSE" "HATCH" "POINT" "SOLID" "SPLINE" "TEXT" "XLINE"))
                       '<))
(assert-equal "the text keeps its value" "Supply air" (world--get 1 (ssname (ssget "X" '((0 . "TEXT"))) 0)))
(assert-equal "the dimension style comes back" "DUCT" (cdr (assoc 2 (tblsearch "DIMSTYLE" "DUCT"))))

;;; Locked layers: the module's setters cannot open their entities.

(entmake '((0 . "LAYER") (2 . "LOCKED") (70 . 4)))
(entmake '((0 . "LINE") (8 . "LOCKED") (10 0.0 0.0 0.0) (11 5.0 0.0 0.0)))
(setq locked (entlast))
(assert-equal "entmod of an entity on a locked layer is refused" nil
              (entmod (subst '(11 9.0 0.0 0.0) (assoc 11 (entget locked)) (entget locked))))
(assert-equal "entdel too" nil (entdel locked))

(test-done)
