;;; ActiveX from LISP: VLA-objects as views of the drawing that entget reads,
;;; collections, variants and safearrays, errors, erased objects and LISP
;;; data kept with the drawing.
(test-file "activex_test.lsp")
(vl-load-com)

(defun ax--pt (x y z) (vlax-3d-point (list x y z)))
(defun ax--err (fn args) (vl-catch-all-error-message (vl-catch-all-apply fn args)))

(setq acad (vlax-get-acad-object)
      doc (vla-get-ActiveDocument acad)
      ms (vla-get-ModelSpace doc)
      layers (vla-get-Layers doc))
(assert-equal "objects are of their own type" 'VLA-OBJECT (type acad))
(assert-true "the application prints as the host prints it"
             (wcmatch (vl-prin1-to-string acad) "`#<VLA-OBJECT IAcadApplication *>"))
(assert-true "model space prints as its interface"
             (wcmatch (vl-prin1-to-string ms) "`#<VLA-OBJECT IAcadModelSpace *>"))
(assert-true "one object per thing while LISP holds it" (eq doc (vla-get-ActiveDocument acad)))
(assert-equal "the document's name" (host:current-document) (vla-get-Name doc))
(assert-true "every object knows its application" (eq acad (vla-get-Application ms)))

;;; Properties both ways: what ActiveX writes entget reads, and back.
(setq line (vla-AddLine ms (ax--pt 1 2 0) (ax--pt 11 2 0)))
(setq e (vlax-vla-object->ename line))
(assert-equal "the new line is the drawing's last entity" (entlast) e)
(assert-equal "entget sees the points" '((10 1.0 2.0 0.0) (11 11.0 2.0 0.0))
              (list (assoc 10 (entget e)) (assoc 11 (entget e))))
(assert-equal "the handle is entget's" (cdr (assoc 5 (entget e))) (vla-get-Handle line))
(assert-equal "ObjectName" "AcDbLine" (vla-get-ObjectName line))
(assert-equal "Length" 10.0 (vla-get-Length line))
(assert-true "the same object from the name" (eq line (vlax-ename->vla-object e)))
(assert-equal "a point comes as a variant of doubles" 8197 (vlax-variant-type (vla-get-StartPoint line)))
(assert-equal "vlax-get opens it into a list" '(1.0 2.0 0.0) (vlax-get line 'StartPoint))

(vla-Add layers "Supply")
(vla-put-Layer line "Supply")
(vla-put-Color line acRed)
(vla-put-EndPoint line (ax--pt 20 5 0))
(vla-put-Lineweight line 35)
(vla-put-Visible line :vlax-false)
(setq d (entget e))
(assert-equal "entget sees the layer, colour, end point, lineweight and visibility"
              '("Supply" 1 (20.0 5.0 0.0) 35 1)
              (list (cdr (assoc 8 d)) (cdr (assoc 62 d)) (cdr (assoc 11 d)) (cdr (assoc 370 d)) (cdr (assoc 60 d))))
(entmod (subst '(62 . 3) '(62 . 1) (subst '(10 0.0 0.0 0.0) (assoc 10 d) d)))
(assert-equal "ActiveX sees what entmod wrote" '(3 (0.0 0.0 0.0))
              (list (vla-get-Color line) (vlax-get line 'StartPoint)))
(assert-equal "Visible reads back" :vlax-false (vla-get-Visible line))
(vlax-put line 'StartPoint '(1 1 0))
(assert-equal "vlax-put takes a list" '(1.0 1.0 0.0) (cdr (assoc 10 (entget e))))
(vlax-put-property line "Linetype" "Continuous")
(assert-equal "vlax-put-property by a string name" "Continuous" (vlax-get-property line 'Linetype))

;;; Circles, arcs, polylines and text.
(setq c (vla-AddCircle ms (ax--pt 5 5 0) 2.0))
(vla-put-Radius c 3)
(assert-equal "a radius written is entget's 40" 3.0 (cdr (assoc 40 (entget (vlax-vla-object->ename c)))))
(assert-equal "diameter and area follow the radius" (list 6.0 (* pi 9))
              (list (vla-get-Diameter c) (vla-get-Area c)))
(vla-put-Area c (* pi 4))
(assert-equal "an area written sets the radius" 2.0 (vla-get-Radius c))
(assert-equal "a radius of nothing is refused" "Automation Error. Invalid input"
              (ax--err 'vla-put-Radius (list c -1)))
(assert-equal "and nothing changed" 2.0 (vla-get-Radius c))
(assert-equal "the curve functions take the object" (* pi 4) (vlax-curve-getArea c))

(setq sa (vlax-make-safearray vlax-vbDouble '(0 . 5)))
(vlax-safearray-fill sa '(0 0 10 0 10 10))
(setq pl (vla-AddLWPolyline ms sa))
(assert-equal "Coordinates" '(0.0 0.0 10.0 0.0 10.0 10.0) (vlax-get pl 'Coordinates))
(vla-put-Closed pl :vlax-true)
(assert-equal "Closed written is entget's 70" 1 (cdr (assoc 70 (entget (vlax-vla-object->ename pl)))))
(assert-equal "length and area of the closed polyline" (list (+ 20 (sqrt 200)) 50.0)
              (list (vla-get-Length pl) (vla-get-Area pl)))
(vlax-put pl 'Coordinates '(0 0 4 0 4 3 0 3))
(assert-equal "Coordinates written: four vertices" 4 (cdr (assoc 90 (entget (vlax-vla-object->ename pl)))))

(setq mt (vla-AddMText ms (ax--pt 0 20 0) 40.0 "Zuluft"))
(vla-put-TextString mt "Abluft 300x200")
(assert-equal "TextString is entget's 1" "Abluft 300x200" (cdr (assoc 1 (entget (vlax-vla-object->ename mt)))))
(assert-equal "AddText refuses while the drawing has no single-line text"
              "Automation Error. AddText is not available: the drawing database has no single-line text entity yet"
              (ax--err 'vla-AddText (list ms "x" (ax--pt 0 0 0) 2.5)))

;;; Blocks: a definition made through ActiveX, drawn into and inserted.
(setq blocks (vla-get-Blocks doc)
      blk (vla-Add blocks (ax--pt 0 0 0) "VAV-Box"))
(vla-AddCircle blk (ax--pt 0 0 0) 1.0)
(vla-AddLine blk (ax--pt -1 0 0) (ax--pt 1 0 0))
(assert-equal "the block holds what was drawn into it" 2 (vla-get-Count blk))
(setq ref (vla-InsertBlock ms (ax--pt 50 50 0) "VAV-Box" 2.0 2.0 1.0 (/ pi 2)))
(setq d (entget (vlax-vla-object->ename ref)))
(assert-equal "the reference as entget sees it" '("VAV-Box" (50.0 50.0 0.0) 2.0)
              (list (cdr (assoc 2 d)) (cdr (assoc 10 d)) (cdr (assoc 41 d))))
(assert-equal "Name and Rotation" (list "VAV-Box" (/ pi 2)) (list (vla-get-Name ref) (vla-get-Rotation ref)))
(assert-equal "a block that is not defined" "Automation Error. Filer error"
              (ax--err 'vla-InsertBlock (list ms (ax--pt 0 0 0) "Nowhere" 1.0 1.0 1.0 0.0)))
(assert-true "Add keeps an existing block" (eq blk (vla-Add blocks (ax--pt 9 9 0) "vav-box")))

;;; Collections: Count, Item by index and name, vlax-for.
(defun ax--table-names (table / r names)
  (setq r (tblnext table T))
  (while r (setq names (cons (cdr (assoc 2 r)) names) r (tblnext table)))
  (reverse names))
(setq names nil)
(vlax-for l layers (setq names (cons (vla-get-Name l) names)))
(assert-equal "vlax-for visits every layer in order" (ax--table-names "LAYER") (reverse names))
(assert-equal "Count" (length names) (vla-get-Count layers))
(assert-equal "Item by index counts from 0" "0" (vla-get-Name (vla-Item layers 0)))
(assert-true "Item by name, without case" (eq (vla-Item layers "SUPPLY") (vla-Item layers "Supply")))
(assert-equal "a name not there" "Automation Error. Key not found" (ax--err 'vla-Item (list layers "Return")))
(assert-equal "an index past the end" "ActiveX Server returned an error: Invalid index"
              (ax--err 'vla-Item (list layers 99)))
(setq n 0)
(assert-equal "vlax-for answers the body's last value" "last"
              (vlax-for o ms (setq n (1+ n)) "last"))
(assert-equal "it visits every entity of model space" (sslength (ssget "X" '((410 . "Model")))) n)
(assert-equal "vlax-for needs a collection"
              "ActiveX Server returned the error: unknown name: _NewEnum"
              (ax--err '(lambda () (vlax-for x line x)) nil))
(assert-equal "the loop variable is restored" nil (boundp 'o))

;;; Layers as objects.
(setq supply (vla-Item layers "Supply"))
(vla-put-Color supply 5)
(vla-put-LayerOn supply :vlax-false)
(assert-equal "tblsearch sees the colour and that the layer is off" -5
              (cdr (assoc 62 (tblsearch "LAYER" "Supply"))))
(vla-put-ActiveLayer doc supply)
(assert-equal "ActiveLayer is CLAYER" "Supply" (getvar "CLAYER"))
(assert-equal "new entities go on the current layer" "Supply"
              (vla-get-Layer (vla-AddLine ms (ax--pt 0 0 0) (ax--pt 1 1 0))))
(assert-equal "the current layer cannot be frozen" "Automation Error. Invalid layer"
              (ax--err 'vla-put-Freeze (list supply :vlax-true)))
(vla-put-ActiveLayer doc (vla-Item layers "0"))
(assert-equal "a layer in use cannot be deleted" "Automation Error. Object is referenced"
              (ax--err 'vla-Delete (list supply)))
(setq spare (vla-Add layers "Spare"))
(vla-Delete spare)
(assert-equal "an unused one can" nil (tblsearch "LAYER" "Spare"))
(assert-equal "a bad layer name" "Automation Error. Invalid symbol table name"
              (ax--err 'vla-Add (list layers "a<b")))

;;; Errors as the host's automation gives them.
(assert-equal "a property the object does not have"
              "ActiveX Server returned the error: unknown name: Radius" (ax--err 'vla-get-Radius (list line)))
(assert-equal "by name, as given" "ActiveX Server returned the error: unknown name: DIAMETRE"
              (ax--err 'vlax-get-property (list c 'Diametre)))
(assert-equal "a method the object does not have"
              "ActiveX Server returned the error: unknown name: AddLine" (ax--err 'vla-AddLine (list line 1 2)))
(assert-equal "not an object" "bad argument type: VLA-OBJECT nil" (ax--err 'vla-get-Layer '(nil)))
(assert-equal "a value of the wrong type" "ActiveX Server returned an error: Type mismatch"
              (ax--err 'vla-put-Color (list line "red")))
(assert-equal "a point as a plain list is not a variant" "ActiveX Server returned an error: Type mismatch"
              (ax--err 'vla-put-StartPoint (list line '(1 2 3))))
(assert-equal "a layer that is not there" "Automation Error. Key not found"
              (ax--err 'vla-put-Layer (list line "Nope")))
(assert-equal "a missing argument" "ActiveX Server returned an error: Parameter not optional"
              (ax--err 'vla-AddLine (list ms (ax--pt 0 0 0))))
(assert-equal "a read-only property" "ActiveX Server returned an error: Member not found"
              (ax--err 'vlax-put-property (list line 'Length 3.0)))
(assert-equal "available properties" '(T nil T nil)
              (list (vlax-property-available-p line 'Length) (vlax-property-available-p line 'Length T)
                    (vlax-property-available-p c "Radius" T) (vlax-property-available-p line 'Radius)))
(assert-equal "applicable methods" '(T nil)
              (list (vlax-method-applicable-p ms 'AddLine) (vlax-method-applicable-p line 'AddLine)))

;;; Changing entities through methods.
(setq l2 (vla-AddLine ms (ax--pt 0 0 0) (ax--pt 10 0 0)))
(vla-Move l2 (ax--pt 0 0 0) (ax--pt 0 5 0))
(assert-equal "Move" '(0.0 5.0 0.0) (vlax-get l2 'StartPoint))
(vla-Rotate l2 (ax--pt 0 5 0) (/ pi 2))
(assert-equal "Rotate about the base point" '(0.0 15.0 0.0) (vlax-get l2 'EndPoint))
(vla-put-Layer l2 "Supply")
(setq l3 (vla-Copy l2))
(assert-true "Copy is a new entity" (/= (vla-get-Handle l2) (vla-get-Handle l3)))
(assert-equal "with the original's layer and points" (list "Supply" (vlax-get l2 'EndPoint))
              (list (vla-get-Layer l3) (vlax-get l3 'EndPoint)))
(assert-equal "vlax-invoke takes lists and answers objects" 'VLA-OBJECT
              (type (vlax-invoke ms 'AddLine '(0 0 0) '(3 4 0))))
(assert-equal "vlax-invoke-method" 5.0
              (vla-get-Length (vlax-invoke-method ms 'AddLine (ax--pt 0 0 0) (ax--pt 3 4 0))))

;;; Erased and released objects.
(vla-Delete l3)
(assert-equal "an erased object" '(T nil) (list (vlax-erased-p l3) (entget (vlax-vla-object->ename l3))))
(assert-equal "is not read" "Automation Error. Object was erased" (ax--err 'vla-get-Layer (list l3)))
(entdel (vlax-vla-object->ename l3))
(assert-equal "entdel brings it back, and ActiveX sees it" '(nil "Supply")
              (list (vlax-erased-p l3) (vla-get-Layer l3)))
(entdel (vlax-vla-object->ename l2))
(assert-true "entdel erases what ActiveX sees" (vlax-erased-p l2))
(setq h3 (vla-get-Handle l3))
(vlax-release-object l3)
(assert-equal "a released object" '(T "Automation Error. Object was released")
              (list (vlax-object-released-p l3) (ax--err 'vla-get-Layer (list l3))))
(assert-equal "the entity is still there" "Supply" (vla-get-Layer (vlax-ename->vla-object (handent h3))))

;;; Variants and safearrays.
(assert-equal "variant types" '(3 5 8 11 0)
              (mapcar 'vlax-variant-type (list (vlax-make-variant 5) (vlax-make-variant 1.5)
                                              (vlax-make-variant "a") (vlax-make-variant :vlax-true)
                                              (vlax-make-variant))))
(assert-equal "a variant of a type asked for" 5.0 (vlax-variant-value (vlax-make-variant 5 vlax-vbDouble)))
(assert-equal "printed forms" '("#<variant 5 1.5>" "#<variant 8197 ...>" "#<safearray...>")
              (list (vl-prin1-to-string (vlax-make-variant 1.5)) (vl-prin1-to-string (ax--pt 1 2 3))
                    (vl-prin1-to-string sa)))
(assert-equal "a string is no double" "ActiveX Server returned an error: Type mismatch"
              (ax--err 'vlax-make-variant (list "abc" vlax-vbDouble)))
(assert-equal "an integer too big for a short" "ActiveX Server returned an error: Overflow"
              (ax--err 'vlax-make-variant (list 40000 vlax-vbInteger)))
(setq m (vlax-make-safearray vlax-vbString '(1 . 2) '(1 . 2)))
(vlax-safearray-put-element m 1 2 "b")
(vlax-safearray-put-element m 2 1 "c")
(assert-equal "two dimensions as a list of rows" '(("" "b") ("c" ""))  (vlax-safearray->list m))
(assert-equal "an index outside its bounds" "ActiveX Server returned an error: Invalid index"
              (ax--err 'vlax-safearray-put-element (list m 0 1 "x")))
(assert-equal "bounds" '(2 1 2) (list (vlax-safearray-get-dim m) (vlax-safearray-get-l-bound m 2)
                                      (vlax-safearray-get-u-bound m 2)))
(assert-equal "not a variant" "bad argument type: variantp 5" (ax--err 'vlax-variant-value '(5)))

;;; LISP data kept with the drawing.
(assert-equal "put answers the data" '(1 2.5 "x") (vlax-ldata-put "DuctData" "Sizes" '(1 2.5 "x")))
(vlax-ldata-put "DuctData" "Pair" (cons "w" pi))
(vlax-ldata-put line "Run" '("S-1" (300 . 200)))
(assert-equal "get, without case in the key" '(1 2.5 "x") (vlax-ldata-get "DuctData" "sizes"))
(assert-equal "a key not there gives the default" 'none (vlax-ldata-get "DuctData" "Gone" 'none))
(assert-equal "list" (list (cons "Sizes" '(1 2.5 "x")) (cons "Pair" (cons "w" pi)))
              (vlax-ldata-list "DuctData"))
(assert-equal "an object's data" '("S-1" (300 . 200)) (vlax-ldata-get line "Run"))
(assert-equal "entity names are not kept" nil (vlax-ldata-test (entlast)))
(assert-equal "delete" '(T nil nil) (list (vlax-ldata-delete "DuctData" "Pair") (vlax-ldata-delete "DuctData" "Pair")
                                          (vlax-ldata-get "DuctData" "Pair")))
(setq long (strcat "Zuluft" (apply 'strcat (mapcar '(lambda (x) "0123456789") '(1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30)))))
(vlax-ldata-put "DuctData" "Long" long)
(vlax-ldata-put "DuctData" "Pi" (list pi -1e-300))
(setq handle (vla-get-Handle line))
(setq path (strcat (getenv "TMP") "/activex_ldata.dxf"))
(assert-equal "save" T (host:save-as path))
(assert-equal "close" T (host:close-document "activex_ldata.dxf"))
(assert-equal "an object of a closed drawing"
              "ActiveX Server returned an error: The object invoked has disconnected from its clients"
              (ax--err 'vla-get-Layer (list line)))
(host:open-document path)
(setq line2 (vlax-ename->vla-object (handent handle)))
(assert-equal "the data is read back with the drawing"
              (list '(1 2.5 "x") long '("S-1" (300 . 200)))
              (list (vlax-ldata-get "DuctData" "Sizes") (vlax-ldata-get "DuctData" "Long")
                    (vlax-ldata-get line2 "Run")))
(setq back (vlax-ldata-get "DuctData" "Pi"))
(assert-equal "reals keep every digit through the file" '(T T) (list (= pi (car back)) (= -1e-300 (cadr back))))
(assert-equal "a layer, a line and a block made through ActiveX come back too"
              '("Supply" "AcDbLine" "VAV-Box")
              (list (vla-get-Layer line2) (vla-get-ObjectName line2)
                    (vla-get-Name (vla-Item (vla-get-Blocks (vla-get-ActiveDocument (vlax-get-acad-object))) "VAV-Box"))))

;;; A drawing another program wrote: every entity of its model space is
;;; visited, and each names the class entget's type belongs to.
(setq data (getenv "VANTRY_SHARED_DATA"))
(if (and data (findfile (strcat data "/dxf/colors.dxf")))
  (progn
    (host:open-document (strcat data "/dxf/colors.dxf"))
    (setq n 0 lines 0 ms (vla-get-ModelSpace (vla-get-ActiveDocument (vlax-get-acad-object))))
    (vlax-for o ms
      (setq n (1+ n))
      (if (= (vla-get-ObjectName o) "AcDbLine") (setq lines (1+ lines))))
    (assert-equal "every entity of a drawing from elsewhere" (sslength (ssget "X" '((410 . "Model")))) n)
    ;; ssget answers nil when nothing matches (this drawing may have no lines).
    (setq ss (ssget "X" '((0 . "LINE") (410 . "Model"))))
    (assert-equal "lines are lines" (if ss (sslength ss) 0) lines))
  (princ "\nskipped: the shared sample drawings are not here (VANTRY_SHARED_DATA)\n"))

(test-done)
