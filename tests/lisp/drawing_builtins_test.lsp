;;; The built-ins that reach the session and the drawing: coordinate
;;; systems, curves, dictionaries, extended data room, dialogs answered by
;;; the person, the screen a headless host lacks, settings and namespaces.
(test-file "drawing_builtins_test.lsp")

;; trans: world, user (after moving and turning the UCS), entity systems.
(assert-equal "world to world" '(1.0 2.0 3.0) (trans '(1 2 3) 0 0))
(host:set-sysvar "UCSORG" '(10.0 0.0 0.0))
(host:set-sysvar "UCSXDIR" '(0.0 1.0 0.0))
(host:set-sysvar "UCSYDIR" '(-1.0 0.0 0.0))
(assert-equal "world to a turned UCS" '(1.0 -2.0 0.0) (trans '(12 1 0) 0 1))
(assert-equal "and back" '(12.0 1.0 0.0) (trans '(1 -2 0) 1 0))
(assert-equal "a displacement ignores the origin" '(-1.0 0.0 0.0) (trans '(0 -1 0) 0 1 T))
(assert-equal "a 2D point stays 2D" '(0.0 10.0) (trans '(0 0) 0 1))
(host:set-sysvar "UCSORG" '(0.0 0.0 0.0))
(host:set-sysvar "UCSXDIR" '(1.0 0.0 0.0))
(host:set-sysvar "UCSYDIR" '(0.0 1.0 0.0))
;; An extrusion of (0 0 -1) mirrors X in its object system.
(assert-equal "world to an extrusion's system" '(-1.0 2.0 -3.0) (trans '(1 2 3) 0 '(0 0 -1)))
(setq circ (entmakex '((0 . "CIRCLE") (10 -5.0 2.0 -3.0) (40 . 4.0) (210 0.0 0.0 -1.0))))
(assert-equal "an entity's system" '(-1.0 2.0 -3.0) (trans '(1 2 3) 0 circ))
(assert-error "a system that is no system" 'trans '((1 2) 7 0) "bad argument value: 7")
(assert-error "not a point" 'trans '("p" 0 1) "bad argument type: 2D/3D point: \"p\"")

;; vlax-curve-* over a line and a closed polyline.
(setq ln (entmakex '((0 . "LINE") (10 0.0 0.0 0.0) (11 10.0 0.0 0.0))))
(assert-equal "line length" 10.0 (vlax-curve-getDistAtParam ln (vlax-curve-getEndParam ln)))
(assert-equal "point at distance" '(4.0 0.0 0.0) (vlax-curve-getPointAtDist ln 4))
(assert-equal "beyond the end" nil (vlax-curve-getPointAtDist ln 11))
(assert-equal "closest point" '(3.0 0.0 0.0) (vlax-curve-getClosestPointTo ln '(3 5 0)))
(assert-equal "start point" '(0.0 0.0 0.0) (vlax-curve-getStartPoint ln))
(assert-equal "first derivative (a line's parameter is its length)" '(1.0 0.0 0.0)
              (vlax-curve-getFirstDeriv ln (vlax-curve-getStartParam ln)))
(assert-equal "a line is open" nil (vlax-curve-isClosed ln))
(assert-equal "a line is planar" T (vlax-curve-isPlanar ln))
(setq sq (entmakex '((0 . "LWPOLYLINE") (100 . "AcDbEntity") (100 . "AcDbPolyline") (90 . 4) (70 . 1)
                     (10 0.0 0.0) (10 2.0 0.0) (10 2.0 3.0) (10 0.0 3.0))))
(assert-equal "polyline area" 6.0 (vlax-curve-getArea sq))
(assert-equal "closed" T (vlax-curve-isClosed sq))
(assert-equal "distance at a point" 5.0 (vlax-curve-getDistAtPoint sq '(2.0 3.0 0.0)))
(assert-equal "param at distance" 1.5 (vlax-curve-getParamAtDist sq 3.5))
(assert-true "circle second derivative at 0"
             (equal '(4.0 0.0 0.0) (mapcar 'abs (vlax-curve-getSecondDeriv circ 0.0)) 1e-6))
(assert-true "and inside its range"
             (equal '(0.0 4.0 0.0) (mapcar 'abs (vlax-curve-getSecondDeriv circ (/ pi 2))) 1e-6))
(assert-equal "not a curve" nil (vlax-curve-getArea (namedobjdict)))
(assert-error "not an entity" 'vlax-curve-getArea '("x") "bad argument type: lentityp \"x\"")

;; Dictionaries: add, find, rename, remove.
(setq xr (entmakex '((0 . "DICTIONARY") (100 . "AcDbDictionary"))))
(assert-equal "dictadd" xr (dictadd (namedobjdict) "VT_TEST" xr))
(assert-equal "dictsearch finds it" xr (cdr (assoc -1 (dictsearch (namedobjdict) "VT_TEST"))))
(assert-equal "dictadd to a taken key" nil
              (dictadd (namedobjdict) "VT_TEST" (entmakex '((0 . "DICTIONARY") (100 . "AcDbDictionary")))))
(assert-equal "dictrename" "VT_RENAMED" (dictrename (namedobjdict) "VT_TEST" "VT_RENAMED"))
(assert-equal "old name gone" nil (dictsearch (namedobjdict) "VT_TEST"))
(assert-equal "dictrename of nothing" nil (dictrename (namedobjdict) "VT_NONE" "VT_X"))
(assert-equal "dictremove" xr (dictremove (namedobjdict) "VT_RENAMED"))
(assert-equal "dictremove again" nil (dictremove (namedobjdict) "VT_RENAMED"))
(assert-true "the removed object is not erased" (entget xr))

;; Extended data room.
(regapp "VT_APP")
(setq xd '((-3 ("VT_APP" (1000 . "abc") (1070 . 5) (1040 . 1.5)))))
(assert-equal "xdsize" 20 (xdsize xd))
(assert-equal "xdsize of no extended data" nil (xdsize '((-3 (5)))))
(assert-equal "xdroom of an empty entity" 16383 (xdroom ln))
(entmod (append (entget ln) xd))
(assert-equal "xdroom after adding" (- 16383 20) (xdroom ln))

;; Dialogs answered by the person.
(host:queue-dialog "plan.dxf")
(assert-equal "getfiled" "plan.dxf" (getfiled "Open" "" "dxf" 0))
(host:queue-dialog "plan")
(assert-equal "getfiled adds the extension" "plan.dxf" (getfiled "Open" "" "dxf" 0))
(host:queue-dialog "Cancel")
(assert-equal "getfiled cancelled" nil (getfiled "Open" "" "dxf" 0))
(assert-equal "getfiled with nothing queued" nil (getfiled "Open" "" "dxf" 0))
(host:queue-dialog "5")
(assert-equal "acad_colordlg" 5 (acad_colordlg 1))
(host:queue-dialog "10,20,30")
(assert-equal "acad_truecolordlg" (list '(62 . 7) (cons 420 (+ (* 10 65536) (* 20 256) 30)))
              (acad_truecolordlg '(62 . 1)))

;; The screen functions draw nothing.
(assert-equal "grdraw" nil (grdraw '(0 0) '(1 1) 1))
(assert-equal "grvecs" nil (grvecs '(1 (0 0) (1 1))))
(assert-equal "grtext" "hi" (grtext -1 "hi"))
(assert-equal "redraw" nil (redraw))

;; The pick-first set.
(setq ss (ssadd ln))
(assert-equal "sssetfirst" (list nil ss) (sssetfirst nil ss))
(assert-equal "ssgetfirst" (list nil ss) (ssgetfirst))
(assert-error "sssetfirst wants a set" 'sssetfirst '(nil 5) "bad argument type: lselsetp 5")

(assert-equal "layoutlist of a new drawing" '("Layout1" "Layout2") (layoutlist))

;; Settings and namespaces.
(assert-equal "setcfg" "on" (setcfg "AppData/Vantry/Mode" "on"))
(assert-equal "getcfg" "on" (getcfg "appdata/vantry/mode"))
(assert-equal "getcfg outside AppData" nil (getcfg "Vantry/Mode"))
(setq *shared* '(a 1))
(vl-propagate '*shared*)
(host:new-document)
(assert-equal "vl-propagate reaches a new document" '(A 1) *shared*)
(assert-equal "startapp starts nothing" nil (startapp "notepad" "x.txt"))

;; textbox: longer text is wider, taller text taller; empty text is a point.
(setq tb1 (textbox '((1 . "Duct") (40 . 1.0))) tb2 (textbox '((1 . "Duct run") (40 . 1.0)))
      tb3 (textbox '((1 . "Duct") (40 . 2.0))))
(assert-equal "textbox starts at the insertion" 0.0 (car (car tb1)))
(assert-true "wider" (> (car (cadr tb2)) (car (cadr tb1))))
(assert-equal "twice the height, twice the size" (* 2 (car (cadr tb1))) (car (cadr tb3)))
(assert-true "cap height near the height" (< 0.9 (cadr (cadr tb1)) 1.2))
(assert-equal "no text" nil (textbox '((40 . 1.0))))

;; osnap on a line and a circle of the new drawing; nentselp at a point.
(setq ol (entmakex '((0 . "LINE") (10 0.0 0.0 0.0) (11 10.0 0.0 0.0))))
(entmakex '((0 . "CIRCLE") (10 20.0 0.0 0.0) (40 . 2.0)))
(assert-equal "endpoint" '(10.0 0.0 0.0) (osnap '(9.5 0.3) "_end"))
(assert-equal "midpoint" '(5.0 0.0 0.0) (osnap '(5.2 0.1) "_mid"))
(assert-equal "nearest" '(3.0 0.0 0.0) (osnap '(3.0 0.2) "_nea"))
(assert-equal "center of a circle picked on its edge" '(20.0 0.0 0.0) (osnap '(22.0 0.1) "_cen"))
(assert-equal "the nearest of several modes" '(10.0 0.0 0.0) (osnap '(9.9 0.1) "_mid,_end"))
(assert-equal "nothing in the aperture" nil (osnap '(50 50) "_end"))
(assert-equal "nentselp at a point" ol (car (nentselp '(4.0 0.0))))
(assert-equal "nentselp on nothing" nil (nentselp "Pick: " '(50.0 50.0)))

(test-done)
