;;; An example duct system, built from sizes held in a small database that the script makes
;;; itself: a main with a round takeoff, a reducing transition, an elbow and a wye, each straight
;;; run cut back by what the fittings beside it take, and hangers along the way.
;;;
;;;   y
;;;   ^          split NW   split NE
;;;   |               \     /
;;;   |                 wye        (9000 4000)
;;;   |   branch         |
;;;   |   (round)        | reduced
;;;   |     |            |
;;;   +-----T-----|>-----+ elbow   main 600x400 at 3000 above the floor, slab at 4000
;;;   0   takeoff  transition      (9000 0)
;;;
;;; Run with:  vantry run examples/ducts.lsp   (set DUCTS_STEP to also write a STEP file)

;; --- Sizes in a database ---------------------------------------------------------------------
(setq tmp (cond ((getenv "TMP")) (T ".")))
(setq db (strcat tmp "/ducts-example.db"))
(vl-file-delete db)
(vt_create_db db)
(vt_connect db)
(vt_sql "CREATE TABLE DuctSizes (Segment TEXT PRIMARY KEY, Width REAL, Depth REAL, Shape TEXT)")
(foreach row '(("main" 600 400 "RC") ("reduced" 500 400 "RC") ("branch" 300 300 "RD") ("split" 400 400 "RC"))
  (vt_sql (strcat "INSERT INTO DuctSizes (Segment, Width, Depth, Shape) VALUES ('" (nth 0 row) "', "
                  (itoa (nth 1 row)) ", " (itoa (nth 2 row)) ", '" (nth 3 row) "')")))

(defun size (segment / rec)
  (setq rec (car (vt_sql (strcat "SELECT Width, Depth, Shape FROM DuctSizes WHERE Segment = '" segment "'"))))
  (list (cdr (assoc "Width" rec)) (cdr (assoc "Depth" rec)) (cdr (assoc "Shape" rec))))

;; --- Runs --------------------------------------------------------------------------------------
(setq elevation 3000.0 slab 4000.0)
(defun pt (x y) (list (float x) (float y) elevation))

;; A run list as the fitting functions read it: centred, no lining.
(defun run (from to segment head tail / s)
  (setq s (size segment))
  (append from to (list 0 (float head) (float tail) (float (nth 0 s)) (float (nth 1 s)) (nth 2 s)
                        0.0 0.0 "" "" 0 0.0)))

(defun get (key alist) (cdr (assoc key alist)))
(setq solids 0)
(defun made (result) (if result (setq solids (1+ solids))) result)

;; --- Fittings first: they say how much of each run they take --------------------------------
(setq takeoff (ol_ol-drawTripleTakeoff nil 1 T 150.0
                (run (pt 0 0) (pt 3000 0) "main" 0 0)
                (run (pt 3000 0) (pt 6000 0) "main" 0 0)
                (run (pt 3000 0) (pt 3000 2500) "branch" 0 0)
                (run (pt 3000 0) (pt 3000 0) "branch" 0 0)))
(setq solids (+ solids 2))
(setq transition (made (ol_ol-drawTripleTransition nil 2
                   (run (pt 3000 0) (pt 6000 0) "main" 0 0)
                   (run (pt 6000 0) (pt 9000 0) "reduced" 0 0))))
(setq elbow (made (ol_ol-drawTripleElbow nil 3 nil 500.0
              (run (pt 6000 0) (pt 9000 0) "reduced" 0 0)
              (run (pt 9000 0) (pt 9000 4000) "reduced" 0 0))))
(setq wye (made (ol_ol-drawTripleWye nil 4 nil 0.0
            (run (pt 9000 0) (pt 9000 4000) "reduced" 0 0)
            (run (pt 9000 4000) (pt 11000 6000) "split" 0 0)
            (run (pt 9000 4000) (pt 7000 6000) "split" 0 0))))

;; --- Straight runs between them ---------------------------------------------------------------
(foreach piece
  (list (run (pt 0 0) (pt 3000 0) "main" 0 (get "dHeadLength" takeoff))
        (run (pt 3000 0) (pt 6000 0) "main" (get "dTailLength1" takeoff) (get "dHeadLength" transition))
        (run (pt 6000 0) (pt 9000 0) "reduced" (get "dTailLength" transition) (get "dHeadLength" elbow))
        (run (pt 9000 0) (pt 9000 4000) "reduced" (get "dTailLength" elbow) (get "dHeadLength" wye))
        (run (pt 3000 0) (pt 3000 2500) "branch" (get "dTailLength2" takeoff) 0)
        (run (pt 9000 4000) (pt 11000 6000) "split" (get "dTailLength1" wye) 0)
        (run (pt 9000 4000) (pt 7000 6000) "split" (get "dTailLength2" wye) 0))
  (made (ol_ol-drawTripleCenter nil 0 piece)))

;; --- Hangers: trapezes under the rectangular main, bands round the round branch ---------------
(foreach x '(1500 4500 7500)
  (made (ol_ol-drawHanger nil (pt x 0) 0.0 600 400 nil 10 40 slab 5)))
(made (ol_ol-drawHanger nil (pt 9000 2000) (/ pi 2) 500 400 nil 10 40 slab 5))
(foreach y '(1000 2000)
  (made (ol_ol-drawHanger T (pt 3000 y) (/ pi 2) 300 300 nil 10 3 slab 5)))

(princ (strcat "\nDuct system: " (itoa solids) " solids from the sizes in " db))
(if (getenv "DUCTS_STEP")
  (princ (strcat "\nSTEP: " (itoa (ol_solid-exportStep (getenv "DUCTS_STEP"))) " solids written to "
                 (getenv "DUCTS_STEP"))))
(vt_close_db)
(princ "\n")
(princ)
