;;; Hostile input to the LISP: runaway recursion through built-ins, values
;;; nested a million deep (evaluated, printed, compared, passed to external
;;; functions, freed at the end of the run) and malformed text. Each ends in
;;; the host's error or a right answer, never a crash.
(test-file "hostile_test.lsp")

(setq stack-limit "internal stack limit reached (simulated)")

;; Either a right answer or the host's stack error: deep but finite work may
;; fit the stack, and must not crash when it does not.
(defun answer-or-stack-limit (name expected r)
  (if (vl-catch-all-error-p r)
    (assert-equal name stack-limit (vl-catch-all-error-message r))
    (assert-equal name expected r)))

;; Recursion through built-ins alone, with no user function in between.
(setq f '(eval f))
(assert-error "eval of itself" 'eval (list f) stack-limit)
(setq g '(apply 'eval (list g)))
(assert-error "apply of itself" 'eval (list g) stack-limit)
(setq h '(mapcar 'eval (list h)))
(assert-error "mapcar of itself" 'eval (list h) stack-limit)

;; A form nested a million deep.
(setq deep-form 1)
(repeat 1000000 (setq deep-form (list 'progn deep-form)))
(answer-or-stack-limit "a million nested forms" 1 (vl-catch-all-apply 'eval (list deep-form)))
(setq deep-form nil)

;; A list nested a million deep through its cars: printed whole, compared,
;; named in an error message, and left for the end of the run to free.
(defun nest (n / x) (repeat n (setq x (list x))) x)
(setq deep (nest 1000000))
(assert-equal "printed whole" 2000003 (strlen (vl-prin1-to-string deep)))
(answer-or-stack-limit "compared" T (vl-catch-all-apply 'equal (list deep (nest 1000000))))
(setq r (vl-catch-all-apply '+ (list deep)))
(assert-true "named in an error" (wcmatch (vl-catch-all-error-message r) "bad argument type: numberp: ((((*"))

;; Passed to an external function and back.
(setq deep-arg (nest 200000))
(answer-or-stack-limit "through the bridge" T
                       (vl-catch-all-apply '(lambda () (equal deep-arg (tm-echo deep-arg))) nil))
(setq deep-arg nil)

;; A selection filter nested deeper than any grouping: refused, not followed.
(setq deep-filter '((0 . "LINE")))
(repeat 100000 (setq deep-filter (list deep-filter)))
(assert-error "deep filter refused" 'ssget (list "X" deep-filter) "bad SSGET list")

;; Malformed text.
(setq r (vl-catch-all-apply 'read '("(a . )")))
(assert-true "dot with nothing after it"
             (wcmatch (vl-catch-all-error-message r) "malformed dotted pair on input*"))

(test-done)
