;;; The fittings of docs/ducts.md side by side, for its picture:
;;;   build/hA/bin/vantry --png docs/images/duct-fittings.png --view isometric run docs/images/duct-fittings.lsp
;;; From left to right: a radius elbow with a trapeze hanger, a square elbow into a wider run (its
;;; size change in a second solid), a takeoff with a shoe and a round branch in a band hanger, a wye.
(defun run (x0 y0 x1 y1 w d shape)
  (list (float x0) (float y0) 0.0 (float x1) (float y1) 0.0 0 0.0 0.0 (float w) (float d) shape
        0.0 0.0 "" "" 0 0.0))
(defun straight (x0 y0 x1 y1 w d shape head tail)
  (ol_ol-drawTripleCenter nil 0 (list (float x0) (float y0) 0.0 (float x1) (float y1) 0.0 0 (float head)
                                      (float tail) (float w) (float d) shape 0.0 0.0 "" "" 0 0.0)))
(defun get (key alist) (cdr (assoc key alist)))

;; Radius elbow, ratio 1.5, with straight duct up to it and a trapeze hanger hung from 800 above.
(setq e (ol_ol-drawTripleElbow nil 0 nil 600.0 (run 0 0 1000 0 400 300 "RC") (run 1000 0 1000 1000 400 300 "RC")))
(straight 0 0 1000 0 400 300 "RC" 0 (get "dHeadLength" e))
(straight 1000 0 1000 1000 400 300 "RC" (get "dTailLength" e) 0)
(ol_ol-drawHanger nil '(300.0 0.0 0.0) 0.0 400 300 nil 10 40 800.0 0)

;; Square elbow into a wider run.
(setq e (ol_ol-drawTripleElbow nil 0 T 0.0 (run 2000 0 3000 0 400 300 "RC") (run 3000 0 3000 1000 600 300 "RC")))
(straight 2000 0 3000 0 400 300 "RC" 0 (get "dHeadLength" e))
(straight 3000 0 3000 1000 600 300 "RC" (get "dTailLength" e) 0)

;; Takeoff with a shoe and a round branch, the branch hung in a band.
(setq t1 (ol_ol-drawTripleTakeoff nil 0 T 150.0 (run 4000 0 5000 0 400 300 "RC") (run 5000 0 6000 0 400 300 "RC")
                                  (run 5000 0 5000 1000 250 250 "RD") (run 5000 0 5000 0 250 250 "RD")))
(straight 4000 0 5000 0 400 300 "RC" 0 (get "dHeadLength" t1))
(straight 5000 0 6000 0 400 300 "RC" (get "dTailLength1" t1) 0)
(straight 5000 0 5000 1000 250 250 "RD" (get "dTailLength2" t1) 0)
(ol_ol-drawHanger T '(5000.0 700.0 0.0) (/ pi 2) 250 250 nil 10 5 800.0 0)

;; Wye: a 400 x 300 trunk into two 300 x 300 branches.
(setq w (ol_ol-drawTripleWye nil 0 nil 0.0 (run 7000 0 8000 0 400 300 "RC") (run 8000 0 8800 800 300 300 "RC")
                             (run 8000 0 8800 -800 300 300 "RC")))
(straight 7000 0 8000 0 400 300 "RC" 0 (get "dHeadLength" w))
(straight 8000 0 8800 800 300 300 "RC" (get "dTailLength1" w) 0)
(straight 8000 0 8800 -800 300 300 "RC" (get "dTailLength2" w) 0)
(princ)
