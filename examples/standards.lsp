;;; The example standards database: made from examples/standards.sql, then
;;; shown in the HVAC layer systems dialog, where the scripted person adds a
;;; system and gives a layer to it.
;;;
;;; *standards-db* (default: standards.db in TMP, or the current folder) and
;;; *standards-sql* (default: examples/standards.sql) may be set before
;;; loading it.
(defun standards:build (db sql / f line n)
  (vl-file-delete db)
  (cond
    ((not (findfile sql)) (princ (strcat "\nThere is no " sql "\n")) 0)
    ((not (and (vt_create_db db) (vt_connect db))) (princ (strcat "\nCannot make " db "\n")) 0)
    (T
     (setq f (open sql "r") n 0)
     (while (setq line (read-line f))
       (if (and (> (strlen line) 0) (/= (substr line 1 2) "--"))
         (if (vt_command line)
           (setq n (1+ n))
           (princ (strcat "\nFailed: " line "\n" (vt_lastError))))))
     (close f)
     n)))

(setq *standards-db* (cond (*standards-db*)
                           ((getenv "TMP") (strcat (getenv "TMP") "/standards.db"))
                           ("standards.db"))
      *standards-sql* (cond (*standards-sql*) ("examples/standards.sql")))
(princ (strcat "\n" (itoa (standards:build *standards-db* *standards-sql*)) " statements into " *standards-db*))
(host:queue-dialog "add=Kitchen Exhaust; *.Description=\"Grease ducts\"; *.Prefix=M-KEXH; OK"
                   "add=M-KEXH-DUCT; *.Color; *.Lineweight=50; *.Description=\"Kitchen exhaust ducts\"; OK"
                   "magenta")
(ol_ol-LayerSystemOptionsHVAC)
(ol_ol-customizeLayers "Kitchen Exhaust")
(princ "\n")
(princ)
