;;; Record editing and queries from LISP: how many appends vt_append_withindex
;;; makes, stored queries given lists, yes/no values, and a database opened
;;; read-only refusing every kind of write.
(test-file "editing_test.lsp")

(setq db (strcat (getenv "TMP") "/editing.db"))
(vl-file-delete db)
(vt_create_db db)
(vt_connect db)
(vt_sql "CREATE TABLE Rooms (ID INTEGER PRIMARY KEY AUTOINCREMENT, Name TEXT, Area REAL, Heated BIT)")
(vt_sql "CREATE INDEX ByHeated ON Rooms (Heated)")
(vt_command "INSERT INTO Rooms (Name, Area, Heated) VALUES ('hall', 20, False), ('office', 12.5, True)")
(vt_table "Rooms")

(defun scalar (sql) (cdr (car (car (vt_sql sql)))))
;; Counter values used so far: every append takes one, kept or not.
(defun counter () (scalar "SELECT seq AS s FROM sqlite_sequence WHERE name = 'Rooms'"))
(defun rooms () (scalar "SELECT count(*) AS n FROM Rooms"))

;; --- vt_append_withindex --------------------------------------------------------------------
(setq c (counter))
(setq r (vt_append_withindex (+ c 1) '(("Name" . "next"))))
(assert-equal "the next counter: one append" (+ c 1) (cdr (assoc "ID" r)))
(assert-equal "  one counter value used" (+ c 1) (counter))
(setq r (vt_append_withindex (+ c 5) '(("Name" . "ahead"))))
(assert-equal "three above the next: kept at the target" (+ c 5) (cdr (assoc "ID" r)))
(assert-equal "  four appends" (+ c 5) (counter))
(assert-equal "  three deleted again" (+ 2 2) (rooms))
(setq before (rooms))
(assert-equal "below the last counter" "error - unable to match index"
              (vt_append_withindex 2 '(("Name" . "low"))))
(assert-equal "  no append at all" (+ c 5) (counter))
(assert-equal "  nothing stored" before (rooms))
;; A deleted record used its counter value up: the last record says c+5,
;; the next value is c+7, so c+6 is passed over.
(vt_append '(("Name" . "gone")))
(vt_delete)
(assert-equal "passed over" "error - unable to match index"
              (vt_append_withindex (+ c 6) '(("Name" . "over"))))
(assert-equal "  one append, deleted again" (+ c 7) (counter))
(assert-equal "  nothing stored" before (rooms))
(assert-equal "a record that does not convert" nil (vt_append_withindex 99 '((1 . 2))))
(assert-equal "  no append" (+ c 7) (counter))

;; A first field that the engine does not number can never reach the target: the call
;; must end with the message and leave the table as it was, not append for ever.
(vt_sql "CREATE TABLE Tags (Tag TEXT, Note TEXT)")
(vt_sql "CREATE TABLE Counted (ID LONG, Name TEXT)")
(vt_command "INSERT INTO Counted (Name) VALUES ('first')")
(defun withindex-refused (table n rec / before)
  (vt_table table "")
  (setq before (vt_sql (strcat "SELECT * FROM " table)))
  (list (vt_append_withindex n rec)
        (equal before (vt_sql (strcat "SELECT * FROM " table)))))
(assert-equal "withindex on a text first field"
              '("error - unable to match index" T) (withindex-refused "Tags" 3 '(("Note" . "x"))))
(vt_command "INSERT INTO Tags VALUES ('D-1', 'x')")
(assert-equal "withindex on a text first field with records"
              '("error - unable to match index" T) (withindex-refused "Tags" 3 '(("Note" . "x"))))
(assert-equal "withindex on a number field the engine does not number"
              '("error - unable to match index" T) (withindex-refused "Counted" 3 '(("Name" . "x"))))
(vt_table "Rooms" "")
(setq before (rooms) c (counter))
(assert-equal "withindex beyond the counters' range" "error - unable to match index"
              (vt_append_withindex 3e9 '(("Name" . "far"))))
(assert-equal "  no append" (list before c) (list (rooms) (counter)))
(vt_table "Rooms")

;; --- Yes/no: stored as -1, read as T ------------------------------------------------------------
(setq r (vt_append '(("Name" . "lab") ("Heated" . T))))
(assert-equal "T reads back as T" T (cdr (assoc "Heated" r)))
(assert-equal "T is stored as -1" -1 (scalar "SELECT Heated + 0 AS h FROM Rooms WHERE Name = 'lab'"))
(assert-equal "True in SQL is the same yes" '("office" "lab")
              (mapcar '(lambda (row) (cdr (assoc "Name" row)))
                      (vt_sql "SELECT Name FROM Rooms WHERE Heated = True ORDER BY ID")))
(assert-equal "False reads as nil" nil (cdr (assoc "Heated" (car (vt_sql "SELECT Heated FROM Rooms WHERE Name = 'hall'")))))
(vt_table "Rooms" "ByHeated")
(assert-equal "seek T" "office" (cdr (assoc "Name" (vt_seek T))))
(vt_table "Rooms")

;; --- Stored queries given lists ------------------------------------------------------------------
(vt_create_query "Three" "PARAMETERS p1 Text, p2 Text, p3 Text; SELECT [p1] & '|' & [p2] & '|' & [p3] AS s")
(assert-equal "a list's elements bind in order" '((("s" . "a|b|c"))) (vt_query "Three" '("a" "b") "c"))
(assert-equal "nested lists flatten" '((("s" . "x|y|z"))) (vt_query "Three" '(("x") ("y" "z"))))
(vt_create_query "Pair" "PARAMETERS k Text, v Long; SELECT [k] & '=' & [v] AS s")
(assert-equal "a dotted pair gives its two values" '((("s" . "w=400"))) (vt_query "Pair" '("w" . 400)))
(assert-equal "a stored query is never replaced" nil (vt_create_query "Pair" "SELECT 1 AS s"))
(assert-true "  3012" (wcmatch (vt_lastError) "(3012) *"))

;; --- Read-only: every write refused with an engine error, nothing changed ----------------------
(defun snapshot ()
  (vt_sql "SELECT (SELECT group_concat(ID || Name || ifnull(Area, '-'), ',') FROM Rooms) AS r, (SELECT seq FROM sqlite_sequence WHERE name = 'Rooms') AS s, (SELECT count(*) FROM _vantry_queries) AS q"))
(setq before (snapshot))
(vt_connect db "r")
(vt_table "Rooms")
(vt_top)
(defun refused (name result)
  (assert-equal (strcat "read-only " name) nil result)
  (assert-true (strcat "read-only " name ": engine error") (wcmatch (vt_lastError) "(3027) *"))
  (vt_resetLastError))
(refused "append" (vt_append '(("Name" . "ro"))))
(refused "replace" (vt_replace '(("Area" . 1.0))))
(refused "delete" (vt_delete))
(refused "command" (vt_command "UPDATE Rooms SET Area = 0"))
(refused "create query" (vt_create_query "RO" "SELECT 1 AS s"))
(refused "append with index" (vt_append_withindex 100 '(("Name" . "ro"))))
(assert-equal "read-only changing sql" "*ERROR*" (vt_sql-error "DELETE FROM Rooms"))
(host:queue-dialog "Yes")
(setq out (capture-transcript '(lambda () (setq r (vl-catch-all-apply 'vt_sql '("INSERT INTO Rooms (Name) VALUES ('ro')"))))))
(assert-true "read-only sql: asked, then failed" (vl-catch-all-error-p r))
(assert-true "read-only sql: engine error" (wcmatch (vt_lastError) "(3027) *"))
(vt_connect db "w")
(assert-equal "nothing changed while read-only" before (snapshot))

(vt_close_db)

;; --- Every kind of failure: nil, the error reported, the document unlocked -----------------
;; With no database open the four editing functions end with the engine's error 3420 instead
;; of escaping to the host, which left the document locked one level deeper each time.
(defun fails-unlocked (name fn args number / r out)
  (vt_resetLastError)
  (setq out (capture-transcript '(lambda () (setq r (vl-catch-all-apply fn args)))))
  (assert-equal (strcat name ": nil") nil r)
  (assert-equal (strcat name ": unlocked") 0 (host:lock-state))
  (if number
    (progn
      (assert-true (strcat name ": error kept") (wcmatch (vt_lastError) (strcat "(" (itoa number) ") *")))
      (assert-true (strcat name ": error printed") (wcmatch out "*Vantry Error: *")))))
(vt_connect db "w")
(vt_table "Rooms")
(fails-unlocked "append an unknown field" 'vt_append '((("Nope" . 1))) 3265)
(fails-unlocked "append a record that does not convert" 'vt_append '(((1 . 2))) nil)
(fails-unlocked "replace an unknown field" 'vt_replace '((("Nope" . 1))) 3265)
(vt_close_db)
(foreach c (list (list "append" 'vt_append '((("Name" . "x"))))
                 (list "append with index" 'vt_append_withindex '(7 (("Name" . "x"))))
                 (list "replace" 'vt_replace '((("Name" . "x"))))
                 (list "delete" 'vt_delete nil))
  (fails-unlocked (strcat (car c) " with no database") (cadr c) (caddr c) 3420)
  (fails-unlocked (strcat (car c) " with no database, again") (cadr c) (caddr c) 3420))
(assert-error "wrong type still fails the call" 'vt_append_withindex '("x" (("Name" . "x")))
              "ADS request error")
(assert-equal "wrong type: unlocked" 0 (host:lock-state))

(test-done)
