;;; Cursors from LISP: the shapes a seek key takes, the ten-key limit, counts
;;; on both sides of 16 bits, closing tables, and what each database function
;;; says about missing or wrong arguments.
(test-file "cursors_test.lsp")

(setq db (strcat (getenv "TMP") "/cursors.db"))
(vl-file-delete db)
(vt_create_db db)
(vt_connect db)

;; The status a call gives the frame, told by what the frame prints:
;; 1 too few arguments, 2 wrong type, 3 bad data, 0 none.
(defun status-of (fn args / out r)
  (setq out (capture-transcript '(lambda () (setq r (vl-catch-all-apply fn args)))))
  (cond ((wcmatch out "*Too few arguments passed.*") 1)
        ((wcmatch out "*Wrong type of arguments passed.*") 2)
        ((wcmatch out "*Bad data passed*") 3)
        (T 0)))
(defun id-of (record) (cdr (assoc "ID" record)))

;; An entity name: a value that has no engine form.
(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 1.0 0.0)))
(setq ename (entlast))

;; --- Seek keys: points, lists, separate values, one value -------------------------------
(vt_sql "CREATE TABLE Pts (ID INTEGER PRIMARY KEY AUTOINCREMENT, X REAL, Y REAL, Z REAL, Tag TEXT)")
(vt_sql "CREATE INDEX XYZ ON Pts (X, Y, Z)")
(vt_command "INSERT INTO Pts (X, Y, Z, Tag) VALUES (1, 2, 4, 'a'), (1, 2, 3, 'b'), (1, 5, 9, 'c'), (2, 0, 0, 'd'), (1, 5, 0, 'e')")
(vt_table "Pts" "XYZ")
(assert-equal "3D point: all three fields" "a" (cdr (assoc "Tag" (vt_seek '(1.0 2.0 4.0)))))
(assert-equal "2D point: the first two, lowest Z first" "e" (cdr (assoc "Tag" (vt_seek '(1 5)))))
(assert-equal "several values" "b" (cdr (assoc "Tag" (vt_seek 1 2.0 3))))
(assert-equal "a list of values" "c" (cdr (assoc "Tag" (vt_seek '(1 5 9 nil)))))
(assert-equal "one value" "d" (cdr (assoc "Tag" (vt_seek 2))))
(assert-equal "a point not there" nil (vt_seek '(9.0 9.0 9.0)))
(assert-true "not found is 3021" (wcmatch (vt_lastError) "(3021) *"))
(assert-equal "one unconvertible value" 2 (status-of 'vt_seek (list ename)))
(assert-equal "an unconvertible value among several" 2 (status-of 'vt_seek (list 1 ename)))
(assert-equal "an unconvertible value in a list" 2 (status-of 'vt_seek (list (list 1 ename))))
(assert-equal "a list inside the list" 2 (status-of 'vt_seek '((1 ("x")))))
(assert-equal "no key" 1 (status-of 'vt_seek nil))

;; Ten keys at most: an eleventh is never looked at, not even converted. The
;; two records differ only in the tenth field, so nine keys would find "x".
(vt_sql "CREATE TABLE Ten (ID INTEGER PRIMARY KEY, A TEXT, B TEXT, C TEXT, D TEXT, E TEXT, F TEXT, G TEXT, H TEXT, I TEXT, J TEXT)")
(vt_sql "CREATE INDEX AllTen ON Ten (A, B, C, D, E, F, G, H, I, J)")
(vt_command "INSERT INTO Ten VALUES (1, '1', '2', '3', '4', '5', '6', '7', '8', '9', 'y'), (2, '1', '2', '3', '4', '5', '6', '7', '8', '9', 'x')")
(vt_table "Ten" "AllTen")
(setq ten '("1" "2" "3" "4" "5" "6" "7" "8" "9" "y"))
(assert-equal "eleven keys in a list use ten" 1 (id-of (vt_seek (append ten (list ename)))))
(assert-equal "eleven separate keys use ten" 1 (id-of (apply 'vt_seek (append ten (list ename)))))
(assert-equal "nine keys find the first of both" 2 (id-of (vt_seek (reverse (cdr (reverse ten))))))

;; --- Counts: an integer up to 32767, a real beyond ---------------------------------------
(vt_sql "CREATE TABLE Many (ID INTEGER PRIMARY KEY, V INTEGER)")
(vt_command "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 32767) INSERT INTO Many (V) SELECT i FROM n")
(vt_table "Many")
(setq n (vt_count))
(assert-equal "32767 records" 32767 n)
(assert-equal "is an integer" 'INT (type n))
(vt_append '(("V" . 0)))
(setq n (vt_count))
(assert-equal "32768 records is a real" 'REAL (type n))
(assert-equal "32768 records" 32768.0 n)
(vt_command "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 7232) INSERT INTO Many (V) SELECT i FROM n")
(assert-equal "40000 records" 40000.0 (vt_count))
(assert-equal "a command's count above 16 bits is a real too" 40000.0 (vt_command "UPDATE Many SET V = 0"))

;; --- Closing tables ---------------------------------------------------------------------
(vt_table "Pts")
(vt_table "Many")
(assert-equal "close table answers nil" nil (vt_close_table))
(assert-equal "no current table" "" (vt_current_table))
(assert-equal "nothing to read" nil (vt_getrec))
(vt_resetLastError)
(assert-equal "closing with none open" nil (vt_close_table))
(assert-true "is an engine error" (/= "" (vt_lastError)))
(vt_table "Pts")
(assert-equal "close all answers nil" nil (vt_closeall_tables))
(assert-equal "none current after close all" "" (vt_current_table))
(assert-equal "count with no table" nil (vt_count))
(vt_resetLastError)
(vt_closeall_tables)
(assert-equal "close all with none open is no error" "" (vt_lastError))

;; --- Arguments -----------------------------------------------------------------------------
;; vt_table refuses only when no argument is a string; a non-string beside a
;; string gives the empty name.
(assert-equal "table: none" 1 (status-of 'vt_table nil))
(assert-equal "table: a number" 2 (status-of 'vt_table '(5)))
(assert-equal "table: two numbers" 2 (status-of 'vt_table '(5 6)))
(assert-equal "table: a number and nil" 2 (status-of 'vt_table '(5 nil)))
(assert-equal "table: a name and a number opens in key order" "Pts" (vt_table "Pts" 5))
(assert-equal "  with the empty index" "" (vt_current_index))
(assert-equal "table: a number then an index name is no type error" 0 (status-of 'vt_table '(5 "XYZ")))
(assert-equal "  but there is no table without a name" nil (vt_table 5 "XYZ"))
(assert-true "  an engine error" (wcmatch (vt_lastError) "(3078) *"))
(assert-equal "skip: a string" 2 (status-of 'vt_skip '("1")))
(assert-equal "skip: a real counts as its whole part" 2 (cdr (assoc "ID" (progn (vt_table "Pts") (vt_skip 1.7)))))
(foreach fn '(vt_sql vt_sql-nil vt_sql-error vt_command vt_query vt_create_query)
  (assert-equal (strcat (vl-symbol-name fn) ": none") 1 (status-of fn nil))
  (assert-equal (strcat (vl-symbol-name fn) ": a number") 2 (status-of fn '(5))))
(assert-equal "sql: a mode that is not a number" 2 (status-of 'vt_sql '("SELECT 1" "x")))
(assert-equal "sql: nil as the mode" 2 (status-of 'vt_sql '("SELECT 1" nil)))
(assert-equal "create query: no SQL text" 2 (status-of 'vt_create_query '("Q")))
(assert-equal "create query: SQL text not a string" 2 (status-of 'vt_create_query '("Q" 5)))
(assert-equal "query: an unconvertible value" 2 (status-of 'vt_query (list "Q" ename)))
(assert-equal "append with index: no counter" 2 (status-of 'vt_append_withindex '("ID" 5)))

;; A counter beyond the engine's range (1e300 reads as 2147483647) is never reached: the
;; call used to climb towards it for hours. It ends at once and appends nothing.
(vt_sql "CREATE TABLE Far (ID COUNTER, Tag TEXT(10))")
(vt_table "Far")
(vt_append '(("Tag" . "first")))
(foreach far '(1e300 -1e300 2147483648.0)
  (assert-equal (strcat "append_withindex_counter_far_ahead " (vl-princ-to-string far))
                "error - unable to match index" (vt_append_withindex far '(("Tag" . "far")))))
(assert-equal "append_withindex_counter_far_ahead: nothing appended" '((("n" . 1)))
              (vt_sql "SELECT count(*) AS n FROM Far"))

;; --- One record after another: values change kind and length from record to record ------
;; Each record must come out as it is stored, whatever the record before it held in the
;; same field: text after null, a longer text after a shorter, numbers after text.
(vt_sql "CREATE TABLE Mixed (ID INTEGER PRIMARY KEY, V)")
(setq mixed (list "short" nil 7 "a much longer text than the one before it, by far" (strcat (chr 252) "ber")
                  40000 2.5 "x" nil))
(vt_table "Mixed" "")
(setq i 0)
(foreach v mixed
  (setq i (1+ i))
  (vt_append (list (cons "ID" i) (cons "V" v))))
(setq seen (list (cdr (assoc "V" (vt_top)))) r nil)
(while (setq r (vt_skip)) (setq seen (cons (cdr (assoc "V" r)) seen)))
(assert-equal "walk: every value as stored" mixed (reverse seen))
(assert-equal "walk: field names in order" '("ID" "V") (mapcar 'car (vt_bottom)))
;; Another table's records carry its own names, and the first table's come back after it.
(vt_table "Pts" "")
(assert-equal "another table: its names" '("ID" "X" "Y" "Z" "Tag") (mapcar 'car (vt_top)))
(vt_table "Mixed" "")
(assert-equal "first table again" '(("ID" . 1) ("V" . "short")) (vt_top))
;; A statement's answer gives the same values as the walk, texts of every length and kind
;; among them: enough rows for the answer's texts to fill several of the blocks they are
;; written into, and one text longer than such a block's share.
(assert-equal "sql: every value as stored" mixed (mapcar '(lambda (r) (cdr (assoc "V" r))) (vt_sql "SELECT V FROM Mixed ORDER BY ID")))
(vt_command "WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 3009) INSERT INTO Mixed (ID, V) SELECT i, printf('row %d of the texts that fill one block after another', i) FROM n")
(vt_command (strcat "UPDATE Mixed SET V = V || replace(printf('%.20000c', '*'), '*', '" (chr 233) "') WHERE ID = 1500"))
(setq answer (vt_sql "SELECT ID, V FROM Mixed WHERE ID >= 10 ORDER BY ID"))
(setq seen nil)
(vt_table "Mixed" "")
(vt_top)
(repeat 8 (vt_skip))
(while (setq r (vt_skip)) (setq seen (cons r seen)))
(assert-equal "sql: many texts as the walk gives them" (reverse seen) answer)
(setq long (cdr (assoc "V" (nth 1490 answer))))
(assert-equal "sql: the long text whole" (+ 20000 (strlen "row 1500 of the texts that fill one block after another")) (strlen long))
(assert-equal "sql: the long text's last characters" (strcat (chr 233) (chr 233)) (substr long (1- (strlen long))))

(vt_close_db)
(test-done)
