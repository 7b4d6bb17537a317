;;; Duct fittings as the product's LISP calls them: the example system builds whole, every fitting
;;; answering, and its solids export to STEP.
(test-file "ducts_test.lsp")

(load "../../examples/ducts.lsp")
(assert-equal "every fitting of the example answered" 18 solids)
(assert-true "takeoff lengths" (and (> (get "dHeadLength" takeoff) 0) (> (get "dTailLength2" takeoff) 0)))
(assert-equal "transition takes nothing from the run before it" 0.0 (get "dHeadLength" transition))
(assert-true "elbow reports its reach" (equal (get "dHeadLength" elbow) (get "dTailLength" elbow) 1e-9))
(assert-true "wye names its solid" (= (type (get "en1" wye)) 'ENAME))
;; Results keep every key; a fitting without a size or shape change answers nil under it.
(assert-equal "elbow keys" '("en1" "en2" "dHeadLength" "dTailLength") (mapcar 'car elbow))
(assert-equal "elbow at one size: no second solid" '("en2") (assoc "en2" elbow))
(assert-equal "wye keys" '("en1" "en2" "en3" "dHeadLength" "dTailLength1" "dTailLength2") (mapcar 'car wye))

(setq step (strcat (getenv "TMP") "/ducts.step"))
(vl-file-delete step)
(assert-equal "export counts the solids" 18 (ol_solid-exportStep step))
(assert-true "STEP file written" (findfile step))

;; Saved and opened again, the drawing holds the same solids.
(defun solid-count (/ ss) (if (setq ss (ssget "X" '((0 . "OL_HVACSOLID")))) (sslength ss) 0))
(setq dxf (strcat (getenv "TMP") "/ducts.dxf") copy (strcat (getenv "TMP") "/ducts-copy.dxf"))
(vl-file-delete dxf)
(vl-file-delete copy)
(host:save-as dxf)
(vl-file-copy dxf copy)
(host:new-document)
(assert-equal "a new drawing has none" 0 (solid-count))
(host:open-document copy)  ; a file no document has open yet: read from the file
(assert-equal "the saved drawing read back has them all" 18 (solid-count))
(assert-equal "no file name" nil (ol_solid-exportStep 1))

;; The frame of a riser follows its partner (the example closed its sizes database: open it again).
(vt_connect db)
(setq riser (run (pt 0 0) (list 0.0 0.0 4000.0) "main" 0 0))
(assert-equal "riser alone" '((0.0 0.0 1.0) (0.0 -1.0 0.0) (1.0 0.0 0.0)) (ol_ol-getTripleCoord riser))
(assert-equal "riser beside a northward run" '((0.0 0.0 1.0) (-1.0 0.0 0.0) (0.0 -1.0 0.0))
              (ol_ol-getTripleCoord riser (run (pt 0 0) (pt 0 1000) "main" 0 0)))
(test-done)
