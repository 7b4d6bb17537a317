;;; A first script: plain AutoLISP in the headless host, with a document open.
(princ "\nVantry headless session")
(princ (strcat "\nDrawing: " (getvar "DWGNAME")))
(defun fact (n) (if (< n 2) 1 (* n (fact (1- n)))))
(princ (strcat "\n10! = " (itoa (fact 10))))
(setq duct-sizes '((300 . 200) (400 . 250) (500 . 300)))
(foreach s duct-sizes
  (princ (strcat "\nDuct " (itoa (car s)) " x " (itoa (cdr s))
                 ": area " (rtos (/ (* (car s) (cdr s)) 1e6) 2 3) " m2")))
(princ "\n")
(princ)
