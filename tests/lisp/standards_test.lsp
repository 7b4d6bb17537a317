;;; The customisation dialogs: layer systems, layers, text styles and label
;;; groups edited in a grid by the scripted person, written to the standards
;;; tables in one transaction on OK.
(test-file "standards_test.lsp")

(setq tmp (getenv "TMP"))
(defun fresh (name / p) (setq p (strcat tmp "/" name)) (vl-file-delete p) p)
(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))
(defun said (text) (vl-string-search text (host:transcript)))
(setq *wrong* "\nWrong type of arguments passed.\n" *bad* "\nBad data passed .\n")
;; The rows of a query as lists of values.
(defun rows (sql) (mapcar '(lambda (r) (mapcar 'cdr r)) (vt_sql sql)))
(defun dialog (answers fn args / r)
  (host:clear-transcript)
  (apply 'host:queue-dialog answers)
  (setq r (apply fn args))
  r)

;;; --- Without a writable database ---------------------------------------------------
(foreach name '("ol_ol-LayerSystemOptionsHVAC" "ol_ol-LayerSystemOptionsPlumb" "ol_ol-LayerSystemOptionsElec"
                "ol_ol-customizeLayers" "ol_ol-customizeTextStyles" "ol_ol-customizeLabelGroup")
  (host:clear-transcript)
  (assert-equal (strcat name " without a database: nil") nil (apply (read name) nil))
  (assert-true (strcat name " says so") (said (strcat name ": no database is connected to this drawing"))))

(setq db (fresh "standards.db"))
(vt_create_db db)
(vt_connect db "r")
(host:clear-transcript)
(assert-equal "read-only: nil" nil (ol_ol-customizeTextStyles))
(assert-true "read-only: said" (said "is open read-only; the standards cannot be changed."))
(vt_close_db)
(vt_connect db)

(assert-equal "layers: a number is the wrong type" *wrong* (status-text 'ol_ol-customizeLayers '(5)))
(assert-equal "label group: a list is the wrong type" *wrong* (status-text 'ol_ol-customizeLabelGroup '((1 2))))
(assert-equal "layers of an unknown system: bad data" *bad* (status-text 'ol_ol-customizeLayers '("Nowhere")))
(assert-equal "an unknown label group: bad data" *bad* (status-text 'ol_ol-customizeLabelGroup '("Nowhere")))

;;; --- Cancelled dialogs change nothing, not even the schema --------------------------
(assert-equal "cancel" nil (dialog '("add=Supply; Cancel") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "cancel: told" (said "[HVAC Layer Systems] -> Cancel"))
(assert-equal "nothing queued" nil (dialog nil 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "nothing queued: told" (said "-> Cancel (no answer queued)"))
(assert-equal "steps that run out" nil (dialog '("add=Supply") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "ran out: told" (said "-> Cancel (the steps ran out)"))
(assert-equal "a step that cannot be done" nil (dialog '("add=Supply; 1.Colour=3; OK") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "cannot do: told" (said "cannot do \"1.Colour=3\": no column \"Colour\"; the dialog is cancelled"))
(assert-equal "no table made by cancelled dialogs" nil (member "StdLayerSystems" (vt_list_tables)))

;;; --- Layer systems of each discipline --------------------------------------------------
(assert-equal "HVAC systems added" T
              (dialog '("add=Supply; *.Description=\"Supply air; low pressure\"; *.Prefix=M-SUP; add=Return; OK")
                      'ol_ol-LayerSystemOptionsHVAC nil))
(assert-equal "the table was made and written"
              '(("Return" "HVAC" nil nil) ("Supply" "HVAC" "Supply air; low pressure" "M-SUP"))
              (rows "SELECT * FROM StdLayerSystems ORDER BY SystemName"))
(assert-equal "plumbing systems" T (dialog '("add=Cold Water; OK") 'ol_ol-LayerSystemOptionsPlumb nil))
(assert-equal "electrical systems" T (dialog '("add=Lighting; OK") 'ol_ol-LayerSystemOptionsElec nil))
(assert-equal "each discipline keeps its own"
              '(("Cold Water" "Plumbing") ("Lighting" "Electrical"))
              (rows "SELECT SystemName, Discipline FROM StdLayerSystems WHERE Discipline <> 'HVAC' ORDER BY SystemName"))
(dialog '("Cancel") 'ol_ol-LayerSystemOptionsHVAC nil)
(assert-true "the HVAC grid shows its own systems" (said "    2  Supply           Supply air; low pressure     M-SUP    [0]"))
(assert-true "and not the others" (not (said "Lighting")))
;; Names are the systems' keys across disciplines, in any case.
(assert-equal "a name another discipline has" nil
              (dialog '("add=LIGHTING; OK; Cancel") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "refused at OK" (said "There is already a layer system named \"LIGHTING\"."))
(assert-equal "two of one name" nil (dialog '("add=supply; OK; Cancel") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "two: refused" (said "There are two layer systems named \"supply\"."))
(assert-equal "an empty name" nil (dialog '("add; OK; Cancel") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "empty: refused" (said "Row 3: the layer system needs a System."))
(assert-equal "a name with a slash" nil (dialog '("Supply.System=A/B; Cancel") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "slash: refused" (said "\"A/B\" cannot name a layer system"))
(assert-equal "the refusals changed nothing" 4 (length (rows "SELECT * FROM StdLayerSystems")))

;;; --- Layers, with the colour chooser --------------------------------------------------
(assert-equal "layers added" T
              (dialog '("add=M-SUP-DUCT; *.System=supply; *.Color=red; add=M-RET-DUCT; *.System=Return; *.Color; *.Lineweight=35; *.Plot; OK"
                        "blue")
                      'ol_ol-customizeLayers nil))
(assert-true "the chooser took the next answer" (said "[Select Color] blue"))
(assert-equal "layers written, combo items in their own spelling"
              '(("M-RET-DUCT" "Return" 5 "CONTINUOUS" 35 nil nil) ("M-SUP-DUCT" "Supply" 1 "CONTINUOUS" -3 T nil))
              (rows "SELECT * FROM StdLayers ORDER BY LayerName"))
(assert-equal "a colour out of range" nil (dialog '("1.Color=256; 1.Color=0; Cancel") 'ol_ol-customizeLayers nil))
(assert-true "colour refused" (said "Color must be between 1 and 255."))
(assert-equal "a cancelled chooser keeps the colour" T (dialog '("M-SUP-DUCT.Color; OK") 'ol_ol-customizeLayers nil))
(assert-equal "colour kept" '((1)) (rows "SELECT Color FROM StdLayers WHERE LayerName = 'M-SUP-DUCT'"))
(assert-equal "a lineweight not in the list" nil (dialog '("1.Lineweight=33; OK") 'ol_ol-customizeLayers nil))
(assert-true "lineweight: cannot do" (said "\"33\" is not an item of Lineweight"))
(assert-equal "a system not in the list" nil (dialog '("1.System=Gas; OK") 'ol_ol-customizeLayers nil))
;; One system's layers: new ones belong to it, its column is fixed.
(assert-equal "layers of Supply" T (dialog '("add=M-SUP-TEXT; *.Color=2; OK") 'ol_ol-customizeLayers '("SUPPLY")))
(assert-true "only its layers shown" (not (said "M-RET-DUCT")))
(assert-equal "the new layer's system" '(("Supply")) (rows "SELECT SystemName FROM StdLayers WHERE LayerName = 'M-SUP-TEXT'"))
(assert-equal "the system column is fixed" nil (dialog '("1.System=Return; OK") 'ol_ol-customizeLayers '("Supply")))
(assert-true "fixed: cannot do" (said "System cannot be changed"))

;;; --- Renames carry over; deleting what is used is refused --------------------------
(assert-equal "the Layers button lists a system's layers" nil
              (dialog '("Supply.Layers; Cancel") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "listed" (said "[Layers of Supply] M-SUP-DUCT, M-SUP-TEXT"))
(assert-equal "two systems swap names" T
              (dialog '("Supply.System=Tmp; Return.System=Supply; Tmp.System=Return; OK") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-equal "the layers follow their systems"
              '(("M-RET-DUCT" "Supply") ("M-SUP-DUCT" "Return") ("M-SUP-TEXT" "Return"))
              (rows "SELECT LayerName, SystemName FROM StdLayers ORDER BY LayerName"))
(assert-equal "the descriptions stayed with their records"
              '(("Return" "Supply air; low pressure") ("Supply" nil))
              (rows "SELECT SystemName, Description FROM StdLayerSystems WHERE Discipline = 'HVAC' ORDER BY SystemName"))
(assert-equal "deleting a system in use" T
              (dialog '("delete=Return; add=Exhaust; OK") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-true "refused, naming the layer"
             (said "The layer system \"Return\" is used by the layer \"M-SUP-DUCT\" and 1 more; it cannot be deleted."))
(assert-equal "the system stays, the other step is written" '(("Exhaust") ("Return") ("Supply"))
              (rows "SELECT SystemName FROM StdLayerSystems WHERE Discipline = 'HVAC' ORDER BY SystemName"))
(assert-equal "deleting an unused system" T (dialog '("delete=Exhaust; OK") 'ol_ol-LayerSystemOptionsHVAC nil))
(assert-equal "deleted" nil (rows "SELECT * FROM StdLayerSystems WHERE SystemName = 'Exhaust'"))

;;; --- Text styles -----------------------------------------------------------------------
(assert-equal "styles" T
              (dialog '("add=Standard; *.Height=2.5; add=Notes; *.Font=Arial; *.Width=0; *.Width=abc; *.Width=0.8; *.Oblique=15; *.Annotative; OK")
                      'ol_ol-customizeTextStyles nil))
(assert-true "a width of 0 refused" (said "Width must be between 0.01 and 100."))
(assert-true "a width that is no number refused" (said "Width must be a number, not \"abc\"."))
(assert-equal "styles written"
              '(("Notes" "Arial" 0.0 0.8 15.0 T) ("Standard" "romans.shx" 2.5 1.0 0.0 nil))
              (rows "SELECT * FROM StdTextStyles ORDER BY StyleName"))
(assert-equal "a font is required" nil (dialog '("Notes.Font=; Cancel") 'ol_ol-customizeTextStyles nil))
(assert-true "font refused" (said "The text style needs a Font."))

;;; --- Label groups: a tree of groups and their labels ------------------------------------
(assert-equal "groups and labels" T
              (dialog '("add=Ducts; *.Style=standard; *.Layer=M-SUP-DUCT; add=Ducts/SA; *.Text=\"Supply; air\"; add=Ducts/RA; *.Text=Return; add=Pipes; add=Pipes/CW; OK")
                      'ol_ol-customizeLabelGroup nil))
(assert-equal "groups written" '(("Ducts" "Standard" "M-SUP-DUCT" nil) ("Pipes" nil nil nil))
              (rows "SELECT * FROM StdLabelGroups ORDER BY GroupName"))
(assert-equal "labels written under their groups"
              '(("Ducts" "RA" "Return") ("Ducts" "SA" "Supply; air") ("Pipes" "CW" nil))
              (rows "SELECT * FROM StdLabels ORDER BY GroupName, LabelName"))
(dialog '("Cancel") 'ol_ol-customizeLabelGroup nil)
(assert-true "drawn as a tree" (said "    1  [-] Ducts"))
(assert-true "labels under their group" (said "    3     SA              Supply; air"))
(assert-equal "a label has no style" nil (dialog '("Ducts/SA.Style=Notes; OK") 'ol_ol-customizeLabelGroup nil))
(assert-true "style on a label: cannot do" (said "a label has no Style"))
(assert-equal "renames of a group and a label" T
              (dialog '("Ducts/SA.Name=SUP; Ducts.Name=Air; Air/RA.Text=\"Return air\"; OK") 'ol_ol-customizeLabelGroup nil))
(assert-equal "the labels went with their group"
              '(("Air" "RA" "Return air") ("Air" "SUP" "Supply; air") ("Pipes" "CW" nil))
              (rows "SELECT * FROM StdLabels ORDER BY GroupName, LabelName"))
(assert-equal "one group shown" T (dialog '("add=Air/OA; add=Other; OK") 'ol_ol-customizeLabelGroup '("air")))
(assert-true "no groups added there" (said "Only the group \"Air\" is shown; add groups with no group named."))
(assert-equal "the label was added" '(("OA")) (rows "SELECT LabelName FROM StdLabels WHERE LabelName = 'OA'"))
(assert-equal "deleting a group" T (dialog '("delete=Pipes; OK") 'ol_ol-customizeLabelGroup nil))
(assert-equal "its labels went with it" nil (rows "SELECT * FROM StdLabels WHERE GroupName = 'Pipes'"))

;; Styles and layers that label groups name: renames carry, deletes are refused.
(assert-equal "a style in use" T (dialog '("delete=Standard; Standard.Style=Std; OK") 'ol_ol-customizeTextStyles nil))
(assert-true "style delete refused" (said "The text style \"Standard\" is used by the label group \"Air\"; it cannot be deleted."))
(assert-equal "a layer renamed" T (dialog '("M-SUP-DUCT.Layer=M-SA-DUCT; OK") 'ol_ol-customizeLayers nil))
(assert-equal "the group follows style and layer" '(("Air" "Std" "M-SA-DUCT"))
              (rows "SELECT GroupName, TextStyle, LayerName FROM StdLabelGroups"))

;; Swaps: two labels of a group, two layers that groups name.
(dialog '("add=Air/XA; Air/XA.Text=Extra; OK") 'ol_ol-customizeLabelGroup nil)
(assert-equal "two labels swap names" T
              (dialog '("Air/SUP.Name=T; Air/XA.Name=SUP; Air/T.Name=XA; OK") 'ol_ol-customizeLabelGroup nil))
(assert-equal "their texts stay with them" '(("SUP" "Extra") ("XA" "Supply; air"))
              (rows "SELECT LabelName, LabelText FROM StdLabels WHERE LabelName IN ('SUP', 'XA') ORDER BY LabelName"))
(assert-equal "two layers swap names" T
              (dialog '("M-SA-DUCT.Layer=X; M-RET-DUCT.Layer=M-SA-DUCT; X.Layer=M-RET-DUCT; OK") 'ol_ol-customizeLayers nil))
(assert-equal "the group names the layer it named before, by its new name" '(("M-RET-DUCT"))
              (rows "SELECT LayerName FROM StdLabelGroups"))
(assert-equal "a name that differs in case only" nil
              (dialog '("M-RET-DUCT.Layer=m-sup-text; OK; Cancel") 'ol_ol-customizeLayers nil))
(assert-true "case: refused" (said "There are two layers named \"M-SUP-TEXT\"."))

;;; --- A write that fails is rolled back whole -----------------------------------------
;; A label the table refuses (one without text, which the table as made
;; elsewhere requires): the group's rename before it is undone.
(vt_command "DROP TABLE StdLabels")
(vt_command "CREATE TABLE StdLabels (GroupName TEXT(64) NOT NULL, LabelName TEXT(64) NOT NULL, LabelText TEXT(255) NOT NULL)")
(vt_command "INSERT INTO StdLabels VALUES ('Air', 'SA', 'Supply')")
(assert-equal "a child write fails" nil (dialog '("Air.Name=Airs; add=Airs/NEW; OK") 'ol_ol-customizeLabelGroup nil))
(assert-true "told" (said "[Label Groups] Nothing was changed."))
(assert-equal "the group kept its name" '(("Air")) (rows "SELECT GroupName FROM StdLabelGroups"))
(assert-equal "and its label" '(("Air" "SA")) (rows "SELECT GroupName, LabelName FROM StdLabels"))
;; A record the table refuses (a field the dialog does not know is required):
;; the rename made before it in the same write is undone.
(vt_command "CREATE TABLE Extra (X LONG)")
(vt_command "DROP TABLE StdTextStyles")
(vt_command "CREATE TABLE StdTextStyles (StyleName TEXT(64) NOT NULL PRIMARY KEY, FontName TEXT(255) NOT NULL, Height DOUBLE, WidthFactor DOUBLE, ObliqueAngle DOUBLE, Annotative YESNO, Owner TEXT(20) NOT NULL)")
(vt_command "INSERT INTO StdTextStyles (StyleName, FontName, Owner) VALUES ('Std', 'romans.shx', 'me')")
(assert-equal "the write fails" nil (dialog '("Std.Style=Standard; add=Title; OK") 'ol_ol-customizeTextStyles nil))
(assert-true "the engine's error is told" (said "Vantry Error: "))
(assert-true "and that nothing changed" (said "[Text Styles] Nothing was changed."))
(assert-true "kept as the last error" (wcmatch (vt_lastError) "(3314) *"))
(assert-equal "the rename was rolled back" '(("Std")) (rows "SELECT StyleName FROM StdTextStyles"))
(assert-equal "and the groups kept their style" '(("Std")) (rows "SELECT TextStyle FROM StdLabelGroups"))
(assert-equal "the database is usable afterwards" T (dialog '("add=Gas; OK") 'ol_ol-LayerSystemOptionsPlumb nil))

;;; --- Switching drawings switches the database ---------------------------------------------
(host:new-document)
(host:clear-transcript)
(assert-equal "another drawing has no database" nil (ol_ol-customizeLayers))
(assert-true "no database there" (said "no database is connected to this drawing"))

(test-done)
