;;; Duct fittings as the product's LISP calls them: the example system builds whole, every fitting
;;; answering, and its solids export to STEP.
(test-file "ducts_test.lsp")

(load "../../examples/ducts.lsp")
(assert-equal "every fitting of the example answered" 18 solids)
(assert-true "takeoff lengths" (and (> (get "dHeadLength" takeoff) 0) (> (get "dTailLength2" takeoff) 0)))
(assert-equal "transition takes nothing from the run before it" 0.0 (get "dHeadLength" transition))
(assert-true "elbow reports its reach" (equal (get "dHeadLength" elbow) (get "dTailLength" elbow) 1e-9))
(assert-true "wye names its solid" (= (type (get "en1" wye)) 'ENAME))

(setq step (strcat (getenv "TMP") "/ducts.step"))
(vl-file-delete step)
(assert-equal "export counts the solids" 18 (ol_solid-exportStep step))
(assert-true "STEP file written" (findfile step))
(assert-equal "no file name" nil (ol_solid-exportStep 1))

;; The frame of a riser follows its partner (the example closed its sizes database: open it again).
(vt_connect db)
(setq riser (run (pt 0 0) (list 0.0 0.0 4000.0) "main" 0 0))
(assert-equal "riser alone" '((0.0 0.0 1.0) (0.0 -1.0 0.0) (1.0 0.0 0.0)) (ol_ol-getTripleCoord riser))
(assert-equal "riser beside a northward run" '((0.0 0.0 1.0) (-1.0 0.0 0.0) (0.0 -1.0 0.0))
              (ol_ol-getTripleCoord riser (run (pt 0 0) (pt 0 1000) "main" 0 0)))
(test-done)
