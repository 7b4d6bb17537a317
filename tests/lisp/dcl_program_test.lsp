;;; A drafting program as users write them: it asks for a layer and a duct
;;; size in a DCL dialog, then draws the duct's two sides and a damper block
;;; through ActiveX. Run headless with the person's answers queued, it must
;;; leave the drawing it would leave on the host, and that drawing must
;;; survive a save and a reopen.
(test-file "dcl_program_test.lsp")
(vl-load-com)

(setq *layers* '("M-DUCT" "M-DUCT-INSUL" "M-PIPE"))

(defun ask-duct (/ id status layer size)
  (setq id (load_dialog "dcl/duct.dcl"))
  (if (not (new_dialog "duct_size" id)) (exit))
  (start_list "layer")
  (mapcar 'add_list *layers*)
  (end_list)
  (action_tile "accept"
    "(setq layer (nth (atoi (get_tile \"layer\")) *layers*) size (atof (get_tile \"size\"))) (done_dialog 1)")
  (setq status (start_dialog))
  (unload_dialog id)
  (if (= status 1) (list layer size)))

(defun pt (x y) (vlax-3d-point (list x y 0.0)))

;; Draws a straight duct of the asked width from (x0 0) to (x1 0), with a
;; damper in its middle; answers the new objects, or nil when cancelled.
(defun draw-duct (x0 x1 / answer doc ms layer size half blocks damper made)
  (if (setq answer (ask-duct))
    (progn
      (setq doc (vla-get-ActiveDocument (vlax-get-acad-object))
            ms (vla-get-ModelSpace doc)
            layer (car answer)
            size (cadr answer)
            half (/ size 2.0))
      (vla-Add (vla-get-Layers doc) layer)
      (setq blocks (vla-get-Blocks doc))
      (if (vl-catch-all-error-p (vl-catch-all-apply 'vla-Item (list blocks "DAMPER")))
        (progn
          (setq damper (vla-Add blocks (pt 0 0) "DAMPER"))
          (vla-AddLine damper (pt 0 -0.5) (pt 0 0.5))
          (vla-AddCircle damper (pt 0 0) 0.1)))
      (setq made (list (vla-AddLine ms (pt x0 half) (pt x1 half))
                       (vla-AddLine ms (pt x0 (- half)) (pt x1 (- half)))
                       (vla-InsertBlock ms (pt (/ (+ x0 x1) 2.0) 0) "DAMPER" size size 1.0 0.0)))
      (foreach o made (vla-put-Layer o layer))
      made)))

(defun data-of (o) (entget (vlax-vla-object->ename o)))

;; The person picks the insulated layer and types 400.
(host:queue-dialog "layer=M-DUCT-INSUL; size=400; accept")
(setq made (draw-duct 0.0 3000.0))
(assert-equal "three objects drawn" 3 (length made))
(assert-equal "every object on the chosen layer" '("M-DUCT-INSUL" "M-DUCT-INSUL" "M-DUCT-INSUL")
              (mapcar '(lambda (o) (cdr (assoc 8 (data-of o)))) made))
(assert-equal "the sides lie half the size either way"
              '(((10 0.0 200.0 0.0) (11 3000.0 200.0 0.0)) ((10 0.0 -200.0 0.0) (11 3000.0 -200.0 0.0)))
              (mapcar '(lambda (o) (list (assoc 10 (data-of o)) (assoc 11 (data-of o))))
                      (list (car made) (cadr made))))
(setq ref (data-of (caddr made)))
(assert-equal "the damper sits mid-run, scaled to the size" '("DAMPER" (1500.0 0.0 0.0) 400.0 400.0)
              (list (cdr (assoc 2 ref)) (cdr (assoc 10 ref)) (cdr (assoc 41 ref)) (cdr (assoc 42 ref))))
(assert-true "the layer was made" (tblsearch "LAYER" "M-DUCT-INSUL"))

;; With nothing queued the dialog is cancelled and nothing is drawn.
(setq before (entlast))
(assert-equal "cancelled: nothing drawn" nil (draw-duct 0.0 10.0))
(assert-equal "cancelled: the drawing is unchanged" before (entlast))

;; A second run reuses the block and the layer it already has.
(host:queue-dialog "layer=M-PIPE; size=100; accept")
(setq second (draw-duct 0.0 500.0))
(assert-equal "the second duct's damper" 100.0 (cdr (assoc 41 (data-of (caddr second)))))

;; What the program drew is in the saved drawing.
(setq path (strcat (getenv "TMP") "/dcl_program.dxf"))
(assert-equal "save" T (host:save-as path))
(host:close-document "dcl_program.dxf")
(assert-equal "reopen" "dcl_program.dxf" (host:open-document path))
(setq lines 0 refs 0 e (entnext))
(while e
  (setq d (entget e))
  (cond ((= (cdr (assoc 0 d)) "LINE") (setq lines (1+ lines)))
        ((= (cdr (assoc 0 d)) "INSERT") (setq refs (1+ refs))))
  (setq e (entnext e)))
(assert-equal "four sides and two dampers come back" '(4 2) (list lines refs))
(assert-equal "the damper block keeps its line and circle" 2
              (vla-get-Count (vla-Item (vla-get-Blocks (vla-get-ActiveDocument (vlax-get-acad-object))) "DAMPER")))

(test-done)
