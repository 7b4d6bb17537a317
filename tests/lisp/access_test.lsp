;;; Access files opened with vt_connect: read-only, answered from a SQLite
;;; copy, with the values a LISP program expects; writes and unreadable files
;;; refused with the engine's errors. Skipped without the shared Access files.
(test-file "access_test.lsp")

(setq data (strcat (getenv "VANTRY_SHARED_DATA") "/access/"))
(defun printed (fn) (capture-transcript fn))

(if (not (findfile (strcat data "testV2000.mdb")))
  (princ "\nSKIP access_test.lsp: no Access files (the shared data folder is absent)\n")
  (progn
    (setq mdb (strcat data "testV2000.mdb"))
    (assert-equal "connect to an Access file" T (vt_connect mdb))
    (assert-equal "read-only though asked for writing" T (vt_readonly))
    (assert-equal "its name is the Access file's" mdb (vt_mdb))
    (assert-equal "a row of every type"
                  '((("A" . "abcdefg") ("C" . 2) ("D" . 222) ("E" . 333333333) ("F" . 444.555)
                     ("G" . "1974-09-21 00:00:00") ("H" . 3.5) ("I" . T)))
                  (vt_sql "SELECT A, C, D, E, F, G, H, I FROM Table1 WHERE A = 'abcdefg'"))
    (assert-equal "open a table by its key" "Table1" (vt_table "Table1" "PrimaryKey"))
    (assert-equal "count" 2 (vt_count))
    (assert-equal "seek on the key" "b" (cdr (assoc "B" (vt_seek "a"))))
    (assert-equal "an Access index by its name" "Table1" (vt_table "Table1" "B"))
    (assert-equal "first by that index" "a" (cdr (assoc "A" (vt_top))))

    ;; Writes: refused, and the message says where writing is possible.
    (assert-equal "append refused" nil (vt_append '(("A" . "new"))))
    (assert-true "read-only error" (wcmatch (vt_lastError) "(3027) *vantry import*"))
    (assert-equal "statement refused" nil (vt_sql-nil "DELETE FROM Table1"))
    (vt_table "Table1")
    (assert-equal "nothing deleted" 2 (vt_count))
    (assert-equal "close" T (vt_close_db))

    ;; Jet 3 and the newest format, through the same door.
    (assert-equal "Access 97 file" T (vt_connect (strcat data "test2V1997.mdb") "r"))
    (assert-equal "its row" (list (list (cons "PROJ_NAME" "Project1") (cons "PROJ_OPT_CURRENCY_SYMBOL" (chr 163))))
                  (vt_sql "SELECT PROJ_NAME, PROJ_OPT_CURRENCY_SYMBOL FROM MSP_PROJECTS"))
    (assert-equal "Access 2003 file with stored queries" T (vt_connect (strcat data "queryTestV2003.mdb")))
    (vt_resetLastError)
    (assert-equal "a stored query runs (its tables are empty)" nil (vt_query "SelectQuery"))
    (assert-equal "without an error" "" (vt_lastError))
    (assert-equal "Access 2016 file" T (vt_connect (strcat data "currency_V2016.accdb")))
    (assert-equal "currency as a real" '((("Money" . 42.0))) (vt_sql "SELECT Money FROM [Table]"))
    (assert-equal "currency reads as a real" (quote REAL) (type (cdr (assoc "Money" (car (vt_sql "SELECT Money FROM [Table]"))))))
    (assert-equal "dates before 1900" T (vt_connect (strcat data "oldDatesV2007.accdb")))
    (assert-equal "as dates"
                  '((("DateField" . "1492-01-10 00:00:00")))
                  (vt_sql "SELECT DateField FROM Table1 WHERE ID = 3"))
    ;; Index names are per table in Access: a second table's "id" is still "id".
    (assert-equal "indexes named alike in two tables" T (vt_connect (strcat data "indexTestV2000.mdb")))
    (assert-equal "the second table's index" "Table2" (vt_table "Table2" "id"))
    (assert-equal "walks by it" 3 (vt_count))
    (vt_close_db)

    ;; An encrypted file: nil, and an error that says so.
    (setq r nil)
    (assert-true "encrypted file is named so"
                 (wcmatch (printed '(lambda () (setq r (vt_connect (strcat data "db2013-enc.accdb"))))) "*encrypted*"))
    (assert-equal "encrypted file not connected" nil r)
    (assert-true "encrypted error number" (wcmatch (vt_lastError) "(3031) *"))))

(test-done)
