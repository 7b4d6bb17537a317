;;; Tables, records and SQL through the module, as the product's LISP uses them.
(test-file "tables_test.lsp")

(setq db (strcat (getenv "TMP") "/tables.db"))
(vl-file-delete db)
(vt_create_db db)
(assert-equal "connect" T (vt_connect db))

;; --- Statements -------------------------------------------------------------------------
(assert-equal "create table" nil
              (vt_sql "CREATE TABLE Ducts (ID INTEGER PRIMARY KEY AUTOINCREMENT, [Size] TEXT, Width INTEGER, Depth REAL, Lined BIT, Made DATETIME)"))
(vt_sql "CREATE INDEX BySize ON Ducts ([Size])")
(assert-equal "insert answers the rows changed" '(1)
              (vt_sql "INSERT INTO Ducts ([Size], Width, Depth, Lined, Made) VALUES ('300x200', 300, 200.0, True, #2024-03-01#)"))
(assert-equal "command" 2
              (vt_command "INSERT INTO Ducts ([Size], Width, Depth, Lined) SELECT 'copy', Width + 100, Depth, False FROM Ducts UNION ALL SELECT 'copy2', 50, 25.5, False"))
(assert-equal "select rows as records"
              '((("Size" . "300x200") ("Width" . 300) ("Lined" . T) ("Made" . "2024-03-01 00:00:00")))
              (vt_sql "SELECT [Size], Width, Lined, Made FROM Ducts WHERE ID = 1"))
(assert-equal "access functions" '((("S" . "300X200") ("L" . 7)))
              (vt_sql "SELECT UCase([Size]) AS S, Len([Size]) AS L FROM Ducts WHERE [Size] LIKE '3*'"))
(assert-equal "no rows" nil (vt_sql "SELECT * FROM Ducts WHERE ID = 999"))
(assert-equal "count above 16 bits comes back as a real" 40000.0
              (vt_command "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 40000) INSERT INTO Ducts (Width) SELECT i FROM n"))
(vt_command "DELETE FROM Ducts WHERE [Size] IS NULL")

;; A bad statement: the runner retries once, then answers as its mode says.
(assert-equal "sql-nil is silent" nil (vt_sql-nil "SELECT * FROM NoSuchTable"))
(assert-equal "sql-error answers *ERROR*" "*ERROR*" (vt_sql-error "SELECT * FROM NoSuchTable"))
(host:queue-dialog "No")
(setq out (capture-transcript '(lambda () (setq r (vt_sql "SELECT * FROM NoSuchTable")))))
(assert-equal "answering No gives nil" nil r)
(assert-true "the box was shown" (wcmatch out "*Database connection error.*"))
(assert-equal "nothing else printed on No" nil (wcmatch out "*Query 2: *"))
(host:queue-dialog "Yes")
(setq out (capture-transcript '(lambda () (setq r (vl-catch-all-apply 'vt_sql '("SELECT * FROM NoSuchTable"))))))
(assert-true "Yes prints the label and the statement" (wcmatch out "*Query 2: SELECT * FROM NoSuchTable*"))
(assert-true "Yes fails the call" (vl-catch-all-error-p r))
(assert-true "the engine's error is kept" (wcmatch (vt_lastError) "(3078) *"))

;; --- Cursors ----------------------------------------------------------------------------
(assert-equal "open table" "Ducts" (vt_table "Ducts"))
(assert-equal "current table" "Ducts" (vt_current_table))
(assert-equal "current index" "" (vt_current_index))
(assert-equal "count" 3 (vt_count))
(assert-equal "top" 1 (cdr (assoc "ID" (vt_top))))
(assert-equal "skip" 2 (cdr (assoc "ID" (vt_skip))))
(assert-equal "skip back" 1 (cdr (assoc "ID" (vt_skip -1))))
(assert-equal "getrec" 1 (cdr (assoc "ID" (vt_getrec))))
(assert-equal "bottom" 3 (cdr (assoc "ID" (vt_bottom))))
(setq out (capture-transcript '(lambda () (setq r (vt_skip)))))
(assert-equal "past the end" nil r)
(assert-equal "no current record is not printed" "" out)
(assert-true "but it is kept" (wcmatch (vt_lastError) "(3021) *"))
(assert-equal "by index" "Ducts" (vt_table "Ducts" "BySize"))
(assert-equal "index name" "BySize" (vt_current_index))
(assert-equal "seek one value" 50 (cdr (assoc "Width" (vt_seek "copy2"))))
(assert-equal "seek a list" 400 (cdr (assoc "Width" (vt_seek '("copy")))))
(assert-equal "seek nil" nil (vt_seek nil))
(assert-equal "seek missing" nil (vt_seek "nothing"))
(assert-equal "more keys than the index has fields" nil (vt_seek '("copy" "x")))
(assert-true "are refused by the engine" (wcmatch (vt_lastError) "(3251) *"))
(assert-equal "unknown table" nil (vt_table "Nope"))
(assert-true "unknown table kept" (wcmatch (vt_lastError) "(3078) *"))
(vt_table "Ducts")

;; --- Records ----------------------------------------------------------------------------
(setq r (vt_append '(("Size" . "500x300") ("Width" . 500) ("Depth" . 300.0))))
(assert-equal "append answers the stored record" "500x300" (cdr (assoc "Size" r)))
(assert-equal "append numbers the counter" 40004 (cdr (assoc "ID" r)))
(assert-equal "flat and list forms agree" "flat"
              (cdr (assoc "Size" (vt_append "Size" "flat" "Width" 1))))
(assert-equal "a name alone sets null" nil
              (cdr (assoc "Depth" (vt_append '(("Size" . "nodepth") ("Depth"))))))
(assert-equal "a non-string name fails" nil (vt_append '((1 . 2))))
(setq r (vt_replace '(("Width" . 999))))
(assert-equal "replace" 999 (cdr (assoc "Width" r)))
(assert-equal "replace with a leading number fails" nil (vt_replace 5 '(("Width" . 1))))
(assert-equal "delete" T (vt_delete))
(assert-equal "nothing current after delete" nil (vt_getrec))

;; The counter can be made to climb to a chosen value. Deleted records used
;; their numbers up, so the next one is found by appending.
(setq next (1+ (cdr (assoc "ID" (vt_append '(("Size" . "probe")))))))
(assert-equal "append with the next counter" next
              (cdr (assoc "ID" (vt_append_withindex next '(("Size" . "n1"))))))
(assert-equal "counter three ahead" (+ next 5)
              (cdr (assoc "ID" (vt_append_withindex (+ next 5) '(("Size" . "n2"))))))
(assert-equal "counter already past" "error - unable to match index"
              (vt_append_withindex 2 '(("Size" . "n3"))))
(assert-equal "no record between" 0
              (cdr (car (car (vt_sql (strcat "SELECT count(*) AS n FROM Ducts WHERE ID > " (itoa next)
                                             " AND ID < " (itoa (+ next 5))))))))

;; --- Stored queries ----------------------------------------------------------------------
(assert-equal "create query" T
              (vt_create_query "WideDucts" "PARAMETERS MinWidth Long; SELECT [Size] FROM Ducts WHERE Width >= [MinWidth] ORDER BY Width DESC"))
(assert-equal "run query with a parameter" '((("Size" . "500x300")) (("Size" . "copy")))
              (vt_query "WideDucts" 400))
(assert-equal "unknown query" nil (vt_query "NoSuchQuery"))

;; --- Read-only databases refuse writes --------------------------------------------------------
(vt_connect db "r")
(vt_table "Ducts")
(assert-equal "read-only append" nil (vt_append '(("Size" . "ro"))))
(assert-true "read-only error kept" (/= "" (vt_lastError)))
(vt_connect db)
(assert-equal "nothing was written" nil (vt_sql "SELECT ID FROM Ducts WHERE [Size] = 'ro'"))

;; --- Without a database ---------------------------------------------------------------------
(vt_close_db)
(assert-equal "table without a database" nil (vt_table "Ducts"))
(assert-equal "sql without a database" nil (vt_sql "SELECT 1"))
(assert-equal "append without a database answers nil" nil (vt_append '(("Size" . "x"))))
(assert-true "  and reports that none is open" (wcmatch (vt_lastError) "(3420) *"))

(test-done)
