;;; Assertions for the LISP tests run by vantry under CTest.
;;;
;;; (assert-equal "case" expected actual) compares with equal (reals within
;;; 1e-9); (assert-true "case" value); (assert-error "case" 'fn args
;;; "message") expects (apply fn args) to fail with that message. A failed
;;; assertion prints the file, the case, the expected and the actual value,
;;; and makes the run end with a non-zero status. (test-file "name") names
;;; the file for the messages; (test-done) prints the count.

(setq *test-file* "?" *test-passed* 0 *test-failed* 0)

(defun test-file (name) (setq *test-file* name))

(defun test--fail (name expected actual)
  (setq *test-failed* (1+ *test-failed*)
        *vantry-exit-status* 1)
  (princ (strcat "\nFAIL " *test-file* ": " name
                 "\n  expected: " (vl-prin1-to-string expected)
                 "\n  actual:   " (vl-prin1-to-string actual) "\n"))
  nil)

(defun test--pass () (setq *test-passed* (1+ *test-passed*)) T)

(defun assert-equal (name expected actual)
  (if (equal expected actual 1e-9) (test--pass) (test--fail name expected actual)))

(defun assert-true (name value)
  (if value (test--pass) (test--fail name T value)))

(defun assert-error (name fn args message / r)
  (setq r (vl-catch-all-apply fn args))
  (cond ((not (vl-catch-all-error-p r)) (test--fail name (list 'error message) r))
        ((/= (vl-catch-all-error-message r) message)
         (test--fail name message (vl-catch-all-error-message r)))
        (T (test--pass))))

;; Runs body-fn with the transcript cleared and returns what it printed.
(defun capture-transcript (body-fn / before)
  (host:clear-transcript)
  (body-fn)
  (host:transcript))

(defun test-done ()
  (princ (strcat "\n" *test-file* ": " (itoa *test-passed*) " passed, "
                 (itoa *test-failed*) " failed\n"))
  (princ))
