;;; Layers made and updated, colours and plot styles of entities and layers,
;;; per-viewport freezing, and what of them survives a drawing file.
(test-file "layers_test.lsp")

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))
(setq *wrong* "\nWrong type of arguments passed.\n"
      *bad* "\nBad data passed .\n")
(defun layer (name) (tblsearch "LAYER" name))
(defun layer-data (name) (entget (tblobjname "LAYER" name) '("*")))
(defun line (p q)
  (entmake (list '(0 . "LINE") (cons 10 p) (cons 11 q)))
  (entlast))

;;; A layer made with every setting, then updated: one record, new settings,
;;; the others kept.
(entmake '((0 . "LTYPE") (100 . "AcDbSymbolTableRecord") (100 . "AcDbLinetypeTableRecord") (2 . "DASHED")
           (70 . 0) (3 . "Dashed __ __") (72 . 65) (73 . 2) (40 . 0.75) (49 . 0.5) (49 . -0.25)))
(assert-equal "a new layer" T (ol_ol-createLayer "M-DUCT" 3 "DASHED" 35 "Thick" "Supply ducts"))
(assert-equal "its colour" 3 (cdr (assoc 62 (layer "M-DUCT"))))
(assert-equal "its linetype" "DASHED" (cdr (assoc 6 (layer "M-DUCT"))))
(assert-equal "its lineweight" 35 (cdr (assoc 370 (layer-data "M-DUCT"))))
(assert-equal "its description, as extended data"
              '("AcAecLayerStandard" (1000 . "") (1000 . "Supply ducts"))
              (cadr (assoc -3 (layer-data "M-DUCT"))))
(assert-equal "again, other case, colour only" T (ol_ol-createLayer "m-duct" 5))
(assert-equal "still one record"
              1 (length (vl-remove-if-not '(lambda (n) (= (strcase n) "M-DUCT"))
                                          (progn (setq names nil l (tblnext "LAYER" T))
                                                 (while l (setq names (cons (cdr (assoc 2 l)) names)
                                                                l (tblnext "LAYER")))
                                                 names))))
(assert-equal "the new colour" 5 (cdr (assoc 62 (layer "M-DUCT"))))
(assert-equal "the linetype kept" "DASHED" (cdr (assoc 6 (layer "M-DUCT"))))
(assert-equal "nil keeps, a true colour replaces" T (ol_ol-createLayer "M-DUCT" '(10 20 30) nil nil nil ""))
(assert-equal "true colour on the layer" (+ (* 10 65536) (* 20 256) 30) (cdr (assoc 420 (layer-data "M-DUCT"))))
(assert-equal "an empty description removes it" nil (assoc -3 (layer-data "M-DUCT")))
(assert-equal "a name alone: a white Continuous layer" T (ol_ol-createLayer "E-POWER"))
(assert-equal "white" 7 (cdr (assoc 62 (layer "E-POWER"))))

;; Bad layers change nothing.
(foreach c (list
  (list "no name" 'ol_ol-createLayer nil *wrong*)
  (list "a number for the name" 'ol_ol-createLayer '(12) *wrong*)
  (list "a name no layer may have" 'ol_ol-createLayer '("A<B") *bad*)
  (list "colour by layer for a layer" 'ol_ol-createLayer '("X1" 256) *bad*)
  (list "colour out of range" 'ol_ol-createLayer '("X1" 300) *bad*)
  (list "an RGB part out of range" 'ol_ol-createLayer '("X1" (10 20 256)) *bad*)
  (list "a lineweight no pen has" 'ol_ol-createLayer '("X1" 1 nil 33) *bad*)
  (list "a real lineweight" 'ol_ol-createLayer '("X1" 1 nil 0.35) *wrong*)
  (list "an empty plot style" 'ol_ol-createLayer '("X1" 1 nil nil "") *bad*))
  (assert-equal (car c) (caddr (cdr c)) (status-text (cadr c) (caddr c)))
  (assert-equal (strcat (car c) ": no layer made") nil (layer "X1")))
(assert-equal "a linetype not loaded: said, nothing made"
              "\nLinetype \"HIDDEN9\" is not loaded in this drawing.\n"
              (status-text 'ol_ol-createLayer '("X1" 1 "HIDDEN9")))
(assert-equal "nothing made" nil (layer "X1"))

;;; Colours of entities and layers.
(setq a (line '(0.0 0.0 0.0) '(10.0 0.0 0.0)))
(assert-equal "an index colour" T (ol_ol-setColor a 1))
(assert-equal "shows in the entity data" 1 (cdr (assoc 62 (entget a))))
(assert-equal "a true colour" T (ol_ol-setColor a '(255 128 0)))
(assert-equal "its 420" 16744448 (cdr (assoc 420 (entget a))))
(assert-equal "a colour book's colour is not built: said, an error, nothing changed"
              "\nColour book colours are not available in this build.\n"
              (status-text 'ol_ol-setColor (list a '(200 16 46 "PANTONE+" "PANTONE 186 C"))))
(assert-equal "still the true colour" 16744448 (cdr (assoc 420 (entget a))))
(assert-equal "back to by layer" T (ol_ol-setColor a 256))
(assert-equal "no 62 or 420" nil (vl-remove-if-not '(lambda (g) (member (car g) '(62 420))) (entget a)))
(assert-equal "a layer's colour by name" T (ol_ol-setColor "E-POWER" 2))
(assert-equal "the layer changed" 2 (cdr (assoc 62 (layer "E-POWER"))))
(assert-equal "a layer that is not there: nil, said"
              "\nLayer \"NOPE\" not found.\n" (status-text 'ol_ol-setColor '("NOPE" 2)))
(assert-equal "and the answer is nil" nil (ol_ol-setColor "NOPE" 2))
(foreach c (list
  (list "no arguments" 'ol_ol-setColor nil *wrong*)
  (list "no colour" 'ol_ol-setColor (list a) *wrong*)
  (list "a real for the entity" 'ol_ol-setColor '(1.5 1) *wrong*)
  (list "a colour out of range" 'ol_ol-setColor (list a 257) *bad*)
  (list "a negative colour" 'ol_ol-setColor (list a -1) *bad*)
  (list "a fraction in an RGB part" 'ol_ol-setColor (list a '(1.5 2 3)) *bad*)
  (list "a two-number colour" 'ol_ol-setColor (list a '(1 2)) *wrong*)
  (list "a book without a colour name" 'ol_ol-setColor (list a '(1 2 3 "BOOK")) *wrong*)
  (list "a book name with a dollar" 'ol_ol-setColor (list a '(1 2 3 "A$B" "C")) *bad*)
  (list "by block for a layer" 'ol_ol-setColor '("E-POWER" 0) *bad*))
  (assert-equal (car c) (caddr (cdr c)) (status-text (cadr c) (caddr c))))
(assert-equal "an erased entity: nil" nil (progn (entdel a) (ol_ol-setColor a 1)))
(entdel a)

;;; Plot styles.
(setq b (line '(0.0 5.0 0.0) '(10.0 5.0 0.0)))
(assert-equal "an entity's own plot style is not built"
              "\nPlot styles of single entities are not available in this build.\n"
              (status-text 'ol_ol-setPlotStyle (list b "Screened")))
(assert-equal "a layer's" T (ol_ol-setPlotStyle "E-POWER" "Thin"))
(assert-equal "ByLayer for a layer is bad data" *bad* (status-text 'ol_ol-setPlotStyle '("E-POWER" "ByLayer")))
(assert-equal "an empty name is bad data" *bad* (status-text 'ol_ol-setPlotStyle (list b "")))
(assert-equal "no name is a wrong type" *wrong* (status-text 'ol_ol-setPlotStyle (list b)))
(assert-equal "a layer that is not there" nil (ol_ol-setPlotStyle "NOPE" "Thin"))

;;; Everything above through a drawing file and back.
(setq path (strcat (getenv "TMP") "/layers_test.dxf")
      bh (cdr (assoc 5 (entget b))))
(ol_ol-setColor b '(200 16 46))
(ol_ol-createLayer "M-DUCT" '(1 2 3) nil nil nil "Return air")
(assert-equal "saved" T (host:save-as path))
(host:close-document "layers_test.dxf")
(assert-equal "opened" "layers_test.dxf" (host:open-document path))
(setq b (handent bh))
(assert-equal "the entity's true colour came back" (+ (* 200 65536) (* 16 256) 46) (cdr (assoc 420 (entget b))))
(assert-equal "the layer's true colour came back" (+ 65536 512 3) (cdr (assoc 420 (layer-data "M-DUCT"))))
(assert-equal "the description came back" "Return air" (cdr (last (cadr (assoc -3 (layer-data "M-DUCT"))))))
(assert-equal "the lineweight came back" 35 (cdr (assoc 370 (layer-data "M-DUCT"))))
(assert-true "the layer's plot style is filed by name"
             (progn (setq f (open path "r") text "" l nil)
                    (while (setq l (read-line f)) (setq text (strcat text l "\n")))
                    (close f)
                    (vl-string-search "\nThin\n" text)))

;;; Freezing layers in one viewport of a layout: a drawing written by hand
;;; with a paper space VIEWPORT.
(setq vp-path (strcat (getenv "TMP") "/viewport.dxf")
      f (open vp-path "w"))
(foreach l '("0" "SECTION" "2" "TABLES" "0" "TABLE" "2" "LAYER" "0" "LAYER" "5" "20" "100" "AcDbSymbolTableRecord"
             "100" "AcDbLayerTableRecord" "2" "0" "70" "0" "62" "7" "6" "CONTINUOUS"
             "0" "LAYER" "5" "21" "100" "AcDbSymbolTableRecord" "100" "AcDbLayerTableRecord" "2" "HIDE-ME"
             "70" "0" "62" "1" "6" "CONTINUOUS" "0" "ENDTAB" "0" "ENDSEC"
             "0" "SECTION" "2" "ENTITIES"
             "0" "VIEWPORT" "5" "30" "100" "AcDbEntity" "67" "1" "8" "0" "100" "AcDbViewport"
             "10" "5.0" "20" "4.0" "30" "0.0" "40" "8.0" "41" "6.0" "68" "2" "69" "2"
             "12" "5.0" "22" "4.0" "45" "6.0" "72" "1000" "90" "32864"
             "0" "ENDSEC" "0" "EOF")
  (write-line l f))
(close f)
(assert-equal "the drawing opens" "viewport.dxf" (host:open-document vp-path))
(setq vp (handent "30"))
(defun frozen (v) (mapcar '(lambda (g) (cdr (assoc 2 (entget (cdr g))))) (vl-remove-if-not '(lambda (g) (= (car g) 341)) (entget v))))
(assert-equal "freeze one layer" T (ol_ol-freezeInViewport vp "HIDE-ME"))
(assert-equal "listed as frozen in the viewport" '("HIDE-ME") (frozen vp))
(assert-equal "freezing again keeps one entry" T (ol_ol-freezeInViewport vp '("HIDE-ME" "0")))
(assert-equal "both, once each" '("HIDE-ME" "0") (frozen vp))
(assert-equal "the layer itself is not frozen" 0 (logand 1 (cdr (assoc 70 (layer "HIDE-ME")))))
(assert-equal "thaw one" T (ol_ol-freezeInViewport vp "0" nil))
(assert-equal "the other stays" '("HIDE-ME") (frozen vp))
(assert-equal "a layer that is not there changes nothing"
              "\nLayer \"NOPE\" not found.\n" (status-text 'ol_ol-freezeInViewport (list vp '("0" "NOPE"))))
(assert-equal "still one" '("HIDE-ME") (frozen vp))
(assert-equal "no viewport" "\nThe entity is not a viewport.\n"
              (status-text 'ol_ol-freezeInViewport (list (line '(0.0 0.0 0.0) '(1.0 1.0 0.0)) "0")))
(assert-equal "no layers" *wrong* (status-text 'ol_ol-freezeInViewport (list vp)))
(assert-equal "a number for the layers" *wrong* (status-text 'ol_ol-freezeInViewport (list vp 3)))
(assert-equal "saved" T (host:save))
(host:close-document "viewport.dxf")
(host:open-document vp-path)
(assert-equal "the frozen layer came back through the file" '("HIDE-ME") (frozen (handent "30")))

(test-done)
