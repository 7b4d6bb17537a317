;;; DCL dialogs run by the scripted person: tiles set up by the program,
;;; answers queued as steps, actions, list boxes, popup lists, radio
;;; clusters, nested dialogs, cancel and term_dialog.
(test-file "dialogs_test.lsp")

(setq id (load_dialog "dcl/duct.dcl"))
(assert-true "load_dialog answers a positive id" (> id 0))
(assert-equal "a missing file" -1 (load_dialog "dcl/no_such_file"))

;; A program in the host's usual shape: fill the tiles, hook the actions,
;; run, read the values the actions saved.
(defun duct-dialog (/ status)
  (setq *picked* nil *layer* nil *size* nil *shape* nil *reasons* nil)
  (if (not (new_dialog "duct_size" id)) (exit))
  (start_list "layer")
  (mapcar 'add_list '("M-DUCT" "M-DUCT-INSUL" "M-PIPE"))
  (end_list)
  (set_tile "layer" "1")
  (action_tile "size" "(setq *reasons* (cons $reason *reasons*))")
  (action_tile "fittings" "(setq *picked* $value)")
  (action_tile "shape" "(setq *shape* $value)")
  (action_tile "accept"
    "(setq *layer* (nth (atoi (get_tile \"layer\")) '(\"M-DUCT\" \"M-DUCT-INSUL\" \"M-PIPE\"))
           *size* (atof (get_tile \"size\"))
           *insulated* (get_tile \"insulated\"))
     (done_dialog 1)")
  (setq status (start_dialog))
  status)

(host:queue-dialog "size=350; layer=M-PIPE; fittings=0 2; rect; insulated; accept")
(assert-equal "OK answers 1" 1 (duct-dialog))
(assert-equal "the popup list picked by its text" "M-PIPE" *layer*)
(assert-equal "the typed size" 350.0 *size*)
(assert-equal "an edit box's action is told it was left" '(2) *reasons*)
(assert-equal "several list items" "0 2" *picked*)
(assert-equal "a radio button tells its cluster" "rect" *shape*)
(assert-equal "a toggle pressed flips" "1" *insulated*)

;; The values a program set stay when the person touches nothing else.
(host:queue-dialog "accept")
(duct-dialog)
(assert-equal "set_tile on a popup list" "M-DUCT-INSUL" *layer*)
(assert-equal "the DCL value" 200.0 *size*)

;; Cancel, by its key and by Esc; nothing queued is a cancel too, and the
;; transcript says so.
(host:queue-dialog "size=999;cancel")
(assert-equal "cancel answers 0" 0 (duct-dialog))
(assert-equal "the accept action did not run" nil *size*)
(host:queue-dialog "Cancel")
(assert-equal "Esc answers 0" 0 (duct-dialog))
(setq out (capture-transcript '(lambda () (setq *st* (duct-dialog)))))
(assert-equal "nothing queued: cancelled" 0 *st*)
(assert-equal "the transcript tells it"
              "[Duct size] -> Cancel (no answer queued)\n[Duct size] -> 0\n" out)

;; Steps that cannot be done cancel the dialog and say why.
(host:queue-dialog "nosuch=1; accept")
(setq out (capture-transcript '(lambda () (setq *st* (duct-dialog)))))
(assert-equal "an unknown key cancels" 0 *st*)
(assert-true "and says which" (wcmatch out "*cannot do \"nosuch=1\": no tile \"nosuch\"*"))
(host:queue-dialog "layer=7; accept")
(assert-equal "a list index past the end" 0 (duct-dialog))
(host:queue-dialog "shape=square; accept")
(assert-equal "a radio cluster without that button" 0 (duct-dialog))
(host:queue-dialog "size=1234567890; accept")
(duct-dialog)
(assert-equal "edit_limit cuts what is typed" 123456.0 *size*)

;; A disabled tile cannot be touched.
(defun disabled-dialog ()
  (new_dialog "duct_size" id)
  (mode_tile "size" 1)
  (action_tile "accept" "(setq *size* (get_tile \"size\")) (done_dialog 1)")
  (start_dialog))
(host:queue-dialog "size=10;accept")
(assert-equal "a disabled tile" 0 (disabled-dialog))
(host:queue-dialog "accept")
(assert-equal "OK without touching it" 1 (disabled-dialog))

;; The standard exits: accept without an action is 1; done_dialog without a
;; status from an action is 0, as the host documents; statuses above 1 are
;; the program's own.
(defun plain-dialog (setup)
  (new_dialog "duct_size" id)
  (eval setup)
  (start_dialog))
(host:queue-dialog "OK")
(assert-equal "Enter presses the default button" 1 (plain-dialog nil))
(host:queue-dialog "accept")
(assert-equal "done_dialog without a status" 0 (plain-dialog '(action_tile "accept" "(done_dialog)")))
(host:queue-dialog "more")
(assert-equal "an application status" 7 (plain-dialog '(action_tile "more" "(done_dialog 7)")))
(host:queue-dialog "more")
(assert-equal "start_dialog answers done_dialog's status" 2
              (plain-dialog '(action_tile "more" "(setq *pt* (done_dialog 2))")))
(assert-true "done_dialog answers the dialog's place, a 2D point"
             (and (= 2 (length *pt*)) (numberp (car *pt*))))

;; Nested dialogs take the next answers in turn; the outer dialog goes on
;; after the inner one ends.
(defun outer-dialog ()
  (new_dialog "duct_size" id)
  (action_tile "more"
    "(new_dialog \"duct_options\" id)
     (action_tile \"accept\" \"(setq *gauge* (get_tile \\\"gauge\\\")) (done_dialog 1)\")
     (setq *inner* (start_dialog))")
  (action_tile "accept" "(setq *size* (get_tile \"size\")) (done_dialog 1)")
  (start_dialog))
(setq *gauge* nil *inner* nil)
(host:queue-dialog "size=400; more; accept" "gauge=18; accept")
(assert-equal "the outer status" 1 (outer-dialog))
(assert-equal "the inner status" 1 *inner*)
(assert-equal "the inner value" "18" *gauge*)
(assert-equal "the outer value after the inner dialog" "400" *size*)

;; term_dialog from an inner action ends both with -1.
(defun term-dialog-test ()
  (new_dialog "duct_size" id)
  (action_tile "more" "(new_dialog \"duct_options\" id) (action_tile \"accept\" \"(term_dialog)\") (setq *inner* (start_dialog))")
  (start_dialog))
(host:queue-dialog "more" "accept")
(assert-equal "term_dialog: outer" -1 (term-dialog-test))
(assert-equal "term_dialog: inner" -1 *inner*)

;; An error in an action ends every dialog and reaches the caller.
(host:queue-dialog "more")
(assert-error "an error in an action" 'plain-dialog '((action_tile "more" "(car 1)")) "bad argument type: consp 1")
(assert-equal "no dialog is left open" nil (start_dialog))

;; A cancel button whose action does not end the dialog: the headless host
;; closes it rather than wait.
(setq *stubborn-tried* nil)
(new_dialog "stubborn" id)
(setq out (capture-transcript '(lambda () (setq *st* (start_dialog)))))
(assert-equal "the stubborn dialog ends" 0 *st*)
(assert-true "its cancel action ran" *stubborn-tried*)
(assert-true "the transcript says it was closed" (wcmatch out "*left the dialog open*"))

;; Tiles between new_dialog and start_dialog: values, attributes, client
;; data, sizes, images, lists changed in place and appended to.
(new_dialog "duct_size" id)
(assert-equal "get_tile of a DCL value" "200" (get_tile "size"))
(assert-equal "a radio cluster's value is its selected button" "round" (get_tile "shape"))
(assert-equal "set_tile answers the value" "1" (set_tile "rect" "1"))
(assert-equal "a radio button set clears its neighbours" '("0" "rect") (list (get_tile "round") (get_tile "shape")))
(assert-equal "get_tile of an unknown key" nil (get_tile "nothing"))
(assert-equal "get_attr: the DCL text" "&Size (mm):" (get_attr "size" "label"))
(set_tile "size" "5")
(assert-equal "get_attr is not the run-time value" "200" (get_attr "size" "value"))
(assert-equal "get_attr of an inherited attribute" "true" (get_attr "accept" "is_default"))
(assert-equal "a list's value is the index of its selected item" "2"
              (progn (set_tile "fittings" "2") (get_tile "fittings")))
(assert-equal "start_list answers its key" "fittings" (start_list "fittings" 1 1))
(assert-equal "add_list changes an item" "Wye" (add_list "Wye"))
(end_list)
(start_list "fittings" 2)
(add_list "Cap")
(end_list)
(assert-equal "start_list on a button" nil (start_list "accept"))
(assert-equal "add_list with no list started" nil (add_list "x"))
(assert-true "image sizes" (and (> (dimx_tile "preview") 0) (> (dimy_tile "preview") 0)))
(assert-equal "an image's height follows its aspect ratio (width over height)"
              (fix (+ 0.5 (/ (dimx_tile "preview") 0.75))) (dimy_tile "preview"))
(assert-equal "start_image" "preview" (start_image "preview"))
(assert-equal "fill_image answers the colour" 5 (fill_image 0 0 (dimx_tile "preview") (dimy_tile "preview") 5))
(assert-equal "vector_image answers the colour" 1 (vector_image 0 0 10 10 1))
(end_image)
(client_data_tile "fittings" "fitting-data")
(action_tile "fittings" "(setq *got* (list $value $data $reason))")
(host:queue-dialog "fittings=Cap; accept")
(start_dialog)
(assert-equal "an item appended by start_list 2, with its client data" '("3" "fitting-data" 1) *got*)

;; A default action for tiles without one.
(new_dialog "duct_size" id "(setq *default* $key)")
(setq *default* nil)
(host:queue-dialog "insulated; accept")
(assert-equal "accept keeps its standard exit" 1 (start_dialog))
(assert-equal "the default action ran for the toggle" "insulated" *default*)

;; The DCL action attribute runs when nothing replaced it.
(assert-equal "new_dialog of a name the file lacks" nil (new_dialog "no_such_dialog" id))
(assert-equal "new_dialog of an id not loaded" nil (new_dialog "duct_size" 999))
(assert-equal "unload_dialog" nil (unload_dialog id))
(assert-equal "new_dialog after unload_dialog" nil (new_dialog "duct_size" id))

(test-done)
