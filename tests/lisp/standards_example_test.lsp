;;; The example standards database builds from its script and is what the
;;; customisation dialogs expect.
(test-file "standards_example_test.lsp")

(setq *standards-db* (strcat (getenv "TMP") "/example-standards.db")
      *standards-sql* "../../examples/standards.sql")
(host:clear-transcript)
(load "../../examples/standards.lsp")
(defun rows (sql) (mapcar '(lambda (r) (mapcar 'cdr r)) (vt_sql sql)))
(defun said (text) (vl-string-search text (host:transcript)))

(assert-true "every statement ran" (said "47 statements into "))
(assert-true "no statement failed" (not (said "Failed: ")))
(assert-equal "systems of each discipline" '(("Electrical" 3) ("HVAC" 5) ("Plumbing" 4))
              (rows "SELECT Discipline, COUNT(*) FROM StdLayerSystems GROUP BY Discipline ORDER BY Discipline"))
(assert-equal "the example's own additions" '(("M-KEXH-DUCT" "Kitchen Exhaust" 6 50))
              (rows "SELECT LayerName, SystemName, Color, Lineweight FROM StdLayers WHERE LayerName = 'M-KEXH-DUCT'"))
;; Every layer names a system of the table, or none.
(assert-equal "layers name known systems" nil
              (rows "SELECT LayerName FROM StdLayers WHERE SystemName IS NOT NULL AND SystemName NOT IN (SELECT SystemName FROM StdLayerSystems)"))
(assert-equal "label groups name known styles and layers" nil
              (rows "SELECT GroupName FROM StdLabelGroups WHERE TextStyle NOT IN (SELECT StyleName FROM StdTextStyles) OR LayerName NOT IN (SELECT LayerName FROM StdLayers)"))
(host:clear-transcript)
(host:queue-dialog "Cancel")
(ol_ol-customizeLabelGroup "pipe labels")
(assert-true "the dialogs read it" (said "    1  [-] Pipe Labels                             Labels         G-ANNO-TEXT      Labels placed on pipes"))
(host:queue-dialog "delete=Sanitary; OK")
(host:clear-transcript)
(assert-equal "its layers hold their systems" T (ol_ol-LayerSystemOptionsPlumb))
(assert-true "refused" (said "The layer system \"Sanitary\" is used by the layer \"P-SAN-PIPE\"; it cannot be deleted."))

(test-done)
