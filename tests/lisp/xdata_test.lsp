;;; The product's own data on entities, under its application names.
(test-file "xdata_test.lsp")

(entmake '((0 . "LINE") (8 . "0") (10 0.0 0.0 0.0) (11 10.0 0.0 0.0)))
(setq e (entlast))
(assert-true "a line to carry data" e)

(assert-equal "put" T (vt_xdput-list e "OL_DUCT" '("300x200" 2.5 7 100000 (1.0 2.0 3.0) ("nested" 4))))
(assert-equal "the application is registered" "OL_DUCT" (cdr (assoc 2 (tblsearch "APPID" "OL_DUCT"))))
(assert-equal "first value" "300x200" (vt_xdget e "OL_DUCT"))
(assert-equal "the list as put" '("300x200" 2.5 7 100000 (1.0 2.0 3.0) ("nested" 4))
              (vt_xdget-list e "OL_DUCT"))
(assert-equal "entget sees it as the host keeps it"
              '("OL_DUCT" (1000 . "300x200") (1040 . 2.5) (1070 . 7) (1071 . 100000) (1010 1.0 2.0 3.0)
                (1002 . "{") (1000 . "nested") (1070 . 4) (1002 . "}"))
              (cadr (assoc -3 (entget e '("OL_DUCT")))))

(vt_xdput-list e "OL_HANGER" '(12.5))
(assert-equal "all applications" '(("OL_DUCT" "300x200" 2.5 7 100000 (1.0 2.0 3.0) ("nested" 4)) ("OL_HANGER" 12.5))
              (vt_xdget-all e))
(assert-equal "replace" T (vt_xdput-list e "OL_DUCT" '("400x250")))
(assert-equal "replaced" '("400x250") (vt_xdget-list e "OL_DUCT"))
(assert-equal "a point alone is a list of its coordinates" T (vt_xdput-list e "OL_PT" '(1 2 3)))
(assert-equal "point stored" '((1.0 2.0 3.0)) (vt_xdget-list e "OL_PT"))
(assert-equal "remove with the empty list" T (vt_xdput-list e "OL_PT" nil))
(assert-equal "removed" nil (vt_xdget-list e "OL_PT"))
(assert-equal "nothing under an unknown application" nil (vt_xdget e "NOBODY"))

;; Bad input gets the frame's statuses.
(assert-equal "a value xdata cannot hold" "\nBad data passed .\n"
              (capture-transcript '(lambda () (vl-catch-all-apply 'vt_xdput-list (list e "OL_DUCT" '(T))))))
(assert-equal "the data is unchanged" '("400x250") (vt_xdget-list e "OL_DUCT"))
(assert-error "not an entity" 'vt_xdget '("x" "OL_DUCT") "ADS request error")
(assert-equal "wrong type message" "\nWrong type of arguments passed.\n"
              (capture-transcript '(lambda () (vl-catch-all-apply 'vt_xdget-all '(5)))))
(entdel e)
(assert-error "an erased entity" 'vt_xdget (list e "OL_DUCT") "ADS request error")

(test-done)
