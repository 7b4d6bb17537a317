;;; The module's entity and geometry queries, against drawings built here and
;;; values worked out by hand.
(test-file "entities_test.lsp")

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))
(setq *wrong* "\nWrong type of arguments passed.\n"
      *bad* "\nBad data passed .\n")

;;; Curves.

;; A 3-4-5 line in plan.
(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 3.0 4.0 0.0)))
(setq ln (entlast))
;; A line climbing in Z, where plan projection and true nearness differ.
(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 10.0 0.0 10.0)))
(setq slope (entlast))
;; A quarter arc of radius 2 about the origin, from +X to +Y (LISP angles are radians).
(entmake '((0 . "ARC") (10 0.0 0.0 0.0) (40 . 2.0) (50 . 0.0) (51 . 1.5707963267948966)))
(setq quarter (entlast))
;; A half circle bulge (bulge 1, counter-clockwise, so it dips below the X
;; axis) from (0,0) to (2,0), then straight up to (2,3).
(entmake '((0 . "LWPOLYLINE") (100 . "AcDbEntity") (100 . "AcDbPolyline") (90 . 3) (70 . 0)
           (10 0.0 0.0) (42 . 1.0) (10 2.0 0.0) (42 . 0.0) (10 2.0 3.0) (42 . 0.0)))
(setq bulged (entlast))

(foreach c (list
  ;; name, value, expected
  (list "line length" (AcDbCurve::getLength ln) 5.0)
  (list "sloped line length" (AcDbCurve::getLength slope) (* 10.0 (sqrt 2.0)))
  (list "arc length" (AcDbCurve::getLength quarter) pi)
  (list "bulged polyline length" (AcDbCurve::getLength bulged) (+ pi 3.0))
  (list "line point at 2.5" (AcDbCurve::getPointAtDist ln 2.5) '(1.5 2.0 0.0))
  (list "an integer distance" (AcDbCurve::getPointAtDist ln 5) '(3.0 4.0 0.0))
  (list "line start" (AcDbCurve::getPointAtDist ln 0.0) '(0.0 0.0 0.0))
  (list "beyond the end" (AcDbCurve::getPointAtDist ln 5.5) nil)
  (list "before the start" (AcDbCurve::getPointAtDist ln -1.0) nil)
  (list "arc midpoint" (AcDbCurve::getPointAtDist quarter (/ pi 2.0)) (list (sqrt 2.0) (sqrt 2.0) 0.0))
  (list "bottom of the bulge" (AcDbCurve::getPointAtDist bulged (/ pi 2.0)) '(1.0 -1.0 0.0))
  (list "on the straight leg" (AcDbCurve::getPointAtDist bulged (+ pi 1.0)) '(2.0 1.0 0.0))
  (list "line distance at a point" (AcDbCurve::getDistAtPoint ln '(1.5 2.0 0.0)) 2.5)
  (list "arc distance at its end" (AcDbCurve::getDistAtPoint quarter '(0.0 2.0 0.0)) pi)
  (list "polyline distance at its end" (AcDbCurve::getDistAtPoint bulged '(2.0 3.0 0.0)) (+ pi 3.0))
  (list "a point off the curve" (AcDbCurve::getDistAtPoint ln '(3.0 0.0 0.0)) nil)
  (list "closest on the line" (AcDbCurve::getClosestPointTo ln '(3.0 0.0 0.0)) '(1.08 1.44 0.0))
  (list "height of the given point is ignored" (AcDbCurve::getClosestPointTo ln '(3.0 0.0 50.0))
        '(1.08 1.44 0.0))
  (list "projected along Z, not nearest in space" (AcDbCurve::getClosestPointTo slope '(5.0 0.0 0.0))
        '(5.0 0.0 5.0))
  (list "not extended past the end" (AcDbCurve::getClosestPointTo ln '(6.0 8.0 0.0)) '(3.0 4.0 0.0))
  (list "closest on the arc" (AcDbCurve::getClosestPointTo quarter '(3.0 3.0 0.0))
        (list (sqrt 2.0) (sqrt 2.0) 0.0)))
  (assert-equal (car c) (caddr c) (cadr c)))

;; Bad input: wrong types give status 2, entities that are not curves 3.
(entmake '((0 . "MTEXT") (10 0.0 0.0 0.0) (40 . 2.5) (1 . "note")))
(setq note (entlast))
(foreach c (list
  (list "length of a string" 'AcDbCurve::getLength '("x") *wrong*)
  (list "length of nothing" 'AcDbCurve::getLength nil *wrong*)
  (list "length of text" 'AcDbCurve::getLength (list note) *bad*)
  (list "distance not a number" 'AcDbCurve::getPointAtDist (list ln "2") *wrong*)
  (list "distance missing" 'AcDbCurve::getPointAtDist (list ln) *wrong*)
  (list "point along text" 'AcDbCurve::getPointAtDist (list note 1.0) *bad*)
  (list "closest without a point" 'AcDbCurve::getClosestPointTo (list ln) *wrong*)
  (list "closest to text" 'AcDbCurve::getClosestPointTo (list note '(0.0 0.0 0.0)) *bad*)
  (list "distance at a string" 'AcDbCurve::getDistAtPoint (list ln "p") *wrong*)
  (list "distance along text" 'AcDbCurve::getDistAtPoint (list note '(0.0 0.0 0.0)) *bad*))
  (assert-equal (car c) (cadddr c) (status-text (cadr c) (caddr c))))
(entmake '((0 . "LINE") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0)))
(setq gone (entlast))
(entdel gone)
(assert-equal "an erased curve cannot be opened" *bad* (status-text 'AcDbCurve::getLength (list gone)))

;;; MText.

(defun mtext (contents width / )
  (entmake (list '(0 . "MTEXT") '(10 0.0 0.0 0.0) '(40 . 2.0) (cons 1 contents) (cons 41 width)))
  (entlast))
(defun width-of (contents) (AcDbMText::actualWidth (mtext contents 0.0)))

(setq short (mtext "HH" 0.0) long (mtext "HHHH" 0.0) empty (mtext "" 0.0))
(assert-true "longer text is wider" (> (AcDbMText::actualWidth long) (AcDbMText::actualWidth short) 0.0))
(assert-equal "capitals stand their nominal height" 2.0 (AcDbMText::actualHeight long))
(assert-equal "empty contents give the nominal height" 2.0 (AcDbMText::actualHeight empty))
(setq wrapped (mtext "aaa bbb ccc ddd" (* 2.5 (width-of "aaa"))))
(assert-true "wrapped text is taller" (> (AcDbMText::actualHeight wrapped) 4.0))
(assert-true "wrapped text is narrower than in one line"
             (< (AcDbMText::actualWidth wrapped) (width-of "aaa bbb ccc ddd")))
(foreach c (list
  (list "no ink above capitals: 0, not less" (AcDbMText::ascent long) 0.0)
  (list "low letters: 0, never negative" (AcDbMText::ascent (mtext "x" 0.0)) 0.0)
  (list "no descent under capitals" (AcDbMText::descent long) 0.0))
  (assert-equal (car c) (caddr c) (cadr c)))
(assert-true "a tail below the line" (> (AcDbMText::descent (mtext "g" 0.0)) 0.0))

;; Direction: one-argument arc tangent, and the truncated right angles.
(defun pointing (dir)
  (entmake (list '(0 . "MTEXT") '(10 0.0 0.0 0.0) '(40 . 2.0) '(1 . "d") (cons 11 dir)))
  (AcDbMText::direction (entlast)))
(foreach c (list
  (list "along +X" '(1.0 0.0 0.0) 0.0)
  (list "along -X, the same as +X" '(-1.0 0.0 0.0) 0.0)
  (list "straight up" '(0.0 1.0 0.0) 1.57079)
  (list "straight down" '(0.0 -1.0 0.0) -1.57079)
  (list "up and left folds to down and right" '(-1.0 1.0 0.0) (/ pi -4.0)))
  (assert-equal (car c) (caddr c) (pointing (cadr c))))
;; Text in an upright plane facing +X, reading straight up: its direction has
;; no part in plan, so it has no angle.
(entmake '((0 . "MTEXT") (10 0.0 0.0 0.0) (40 . 2.0) (1 . "up") (210 1.0 0.0 0.0) (11 0.0 0.0 1.0)))
(assert-equal "reading along Z" '(0.0 0.0 1.0) (cdr (assoc 11 (entget (entlast)))))
(assert-equal "no direction in plan: nil" nil (AcDbMText::direction (entlast)))
(setq turned (mtext "t" 0.0))
(assert-equal "set direction" T (AcDbMText::setDirection turned (/ pi 6.0)))
(assert-equal "direction as set" (/ pi 6.0) (AcDbMText::direction turned))
(assert-equal "stored as a unit vector" (list (cos (/ pi 6.0)) (sin (/ pi 6.0)) 0.0)
              (cdr (assoc 11 (entget turned))))
(assert-equal "set normal" T (AcDbMText::setNormal turned '(0.0 0.0 -1.0)))
(assert-equal "normal as set" '(0.0 0.0 -1.0) (cdr (assoc 210 (entget turned))))
(assert-equal "a zero normal is refused" nil (AcDbMText::setNormal turned '(0.0 0.0 0.0)))
(assert-equal "set mask" T (AcDbMText::setMask short T 2.0))
(assert-equal "mask on, in the background colour" 3 (cdr (assoc 90 (entget short))))
(assert-equal "mask border" 2.0 (cdr (assoc 45 (entget short))))
(assert-equal "mask off" T (AcDbMText::setMask short nil 1.5))
(assert-equal "no mask" nil (cdr (assoc 90 (entget short))))
(assert-equal "mask on again" T (AcDbMText::setMask short T 1.0))
(assert-equal "with its new border" 1.0 (cdr (assoc 45 (entget short))))
(assert-equal "on, in the background colour" 3 (cdr (assoc 90 (entget short))))

;; Insertion, with and without the optional arguments.
(setq new (AcDbMText::insert "hello" '(1.0 2.0 0.0) 10.0 "Standard" 5))
(setq data (entget new))
(foreach c (list (list 1 "hello") (list 10 '(1.0 2.0 0.0)) (list 41 10.0) (list 7 "Standard") (list 71 5)
                 (list 410 "Model"))
  (assert-equal (strcat "inserted, group " (itoa (car c))) (cadr c) (cdr (assoc (car c) data))))
(setq plain (entget (AcDbMText::insert "x" '(0.0 0.0 0.0) nil "NO SUCH STYLE")))
(assert-equal "no width: no wrapping" 0.0 (cdr (assoc 41 plain)))
(assert-equal "unknown style: the default" "Standard" (cdr (assoc 7 plain)))
(assert-equal "no attachment: top left" 1 (cdr (assoc 71 plain)))
(defun attached (args) (cdr (assoc 71 (entget (apply 'AcDbMText::insert (append '("x" (0.0 0.0 0.0)) args))))))
;; Only the width position passes over a value of another kind; the style
;; position leaves it to the attachment position.
(foreach c '(("an integer after the width is the attachment" (0 9) 9)
             ("after a style name" (0 "Standard" 8) 8)
             ("nil in the style position is passed to the attachment position" (0 nil 9) 1)
             ("a real is no attachment" (0 "Standard" 5.0) 1)
             ("no width either" (nil 7) 7))
  (assert-equal (car c) (caddr c) (attached (cadr c))))

;; The last line: after the last paragraph break, after the wrapped lines.
(assert-equal "one line" (AcDbMText::actualWidth long) (AcDbMtext::lastLineWidth long))
(setq paras (mtext "HHHH\\PHH" 0.0))
(assert-equal "after the paragraph break" (AcDbMText::actualWidth short) (AcDbMtext::lastLineWidth paras))
(assert-equal "contents put back" "HHHH\\PHH" (cdr (assoc 1 (entget paras))))
;; Two words to a line: "aaa bbb" / "ccc" is laid out, so the last line is
;; "ccc", not the longest tail that would fit ("bbb ccc").
(setq two (mtext "HHHH\\Paaa bbb ccc" (* 2.5 (width-of "aaa"))))
(assert-equal "the last wrapped line" (width-of "ccc") (AcDbMtext::lastLineWidth two))
(assert-equal "wrapped contents put back" "HHHH\\Paaa bbb ccc" (cdr (assoc 1 (entget two))))
(assert-equal "not MText: 0.0" 0.0 (AcDbMtext::lastLineWidth ln))

(foreach c (list
  (list "width of a line" 'AcDbMText::actualWidth (list ln) *bad*)
  (list "height without text" 'AcDbMText::actualHeight nil *wrong*)
  (list "ascent of a line" 'AcDbMText::ascent (list ln) *bad*)
  (list "descent of a string" 'AcDbMText::descent '("t") *wrong*)
  (list "direction of a line" 'AcDbMText::direction (list ln) *bad*)
  (list "normal of a line" 'AcDbMText::setNormal (list ln '(0.0 0.0 1.0)) *bad*)
  (list "normal missing" 'AcDbMText::setNormal (list short) *wrong*)
  (list "angle not a number" 'AcDbMText::setDirection (list short "0") *wrong*)
  (list "mask scale missing" 'AcDbMText::setMask (list short T) *wrong*)
  (list "insert without a location" 'AcDbMText::insert '("x") *wrong*)
  (list "insert a number" 'AcDbMText::insert '(5 (0.0 0.0 0.0)) *wrong*)
  (list "last line of nothing" 'AcDbMtext::lastLineWidth nil *wrong*))
  (assert-equal (car c) (cadddr c) (status-text (cadr c) (caddr c))))
(assert-equal "setting the direction of a line: nil, quietly" '(nil . "")
              (cons (AcDbMText::setDirection ln 1.0)
                    (capture-transcript '(lambda () (AcDbMText::setDirection ln 1.0)))))
(assert-equal "masking a line: nil" nil (AcDbMText::setMask ln T 1.5))

;;; Extents, colour, polyline curve type, face edges.

(foreach c (list
  (list "line extents" ln '(("min" 0.0 0.0 0.0) ("max" 3.0 4.0 0.0)))
  (list "arc extents" quarter '(("min" 0.0 0.0 0.0) ("max" 2.0 2.0 0.0)))
  (list "the bulge counts" bulged '(("min" 0.0 -1.0 0.0) ("max" 2.0 3.0 0.0))))
  (assert-equal (car c) (caddr c) (AcDbEntity::getGeomExtents (cadr c))))
(assert-equal "extents of nothing named" *wrong* (status-text 'AcDbEntity::getGeomExtents '(nil)))
(assert-equal "extents of an erased entity" nil (AcDbEntity::getGeomExtents gone))

(assert-equal "set colour" nil (AcDbEntity::setColor ln 1))
(assert-equal "colour 1" 1 (cdr (assoc 62 (entget ln))))
(AcDbEntity::setColor ln 0)
(assert-equal "by block" 0 (cdr (assoc 62 (entget ln))))
(AcDbEntity::setColor ln 256)
(assert-equal "by layer" nil (cdr (assoc 62 (entget ln))))
(AcDbEntity::setColor ln 5)
;; An index no colour has changes nothing and says nothing; one beyond 16
;; bits must not wrap round to a colour.
(foreach i '(257 300 -1 65537)
  (assert-equal (strcat "no colour " (itoa i) ": nil, quietly") '(nil . "")
                (cons (AcDbEntity::setColor ln i) (status-text 'AcDbEntity::setColor (list ln i))))
  (assert-equal (strcat "no colour " (itoa i) ": unchanged") 5 (cdr (assoc 62 (entget ln)))))
(assert-equal "colour by name" *wrong* (status-text 'AcDbEntity::setColor (list ln "red")))
(assert-equal "colour of an erased entity: quietly nothing" "" (status-text 'AcDbEntity::setColor (list gone 3)))

(entmake '((0 . "POLYLINE") (66 . 1) (70 . 0) (10 0.0 0.0 0.0)))
(foreach v '((0.0 0.0 0.0) (10.0 5.0 0.0) (20.0 0.0 0.0) (30.0 5.0 0.0)) (entmake (list '(0 . "VERTEX") (cons 10 v))))
(entmake '((0 . "SEQEND")))
(setq poly (entlast))
(defun poly-flags () (logand 6 (cdr (assoc 70 (entget poly)))))
(foreach c '(("curve fit" "f" 2) ("upper case changes nothing" "F" 2) ("straightened" "d" 0)
             ("spline fit" "s" 4) ("unknown type changes nothing" "x" 4) ("straightened again" "d" 0))
  (assert-equal (strcat (car c) ": T") T (AcDb2dPolyline::setCurveType poly (cadr c)))
  (assert-equal (car c) (caddr c) (poly-flags)))
(assert-equal "fitting a line: nil" nil (AcDb2dPolyline::setCurveType ln "f"))

;; The colour reaches an old-style polyline's vertices, and not its neighbours.
(defun vertex-colours (/ e out)
  (setq e (entnext poly))
  (while (= "VERTEX" (cdr (assoc 0 (entget e))))
    (setq out (cons (cdr (assoc 62 (entget e))) out) e (entnext e)))
  out)
(assert-true "vertices to colour" (vertex-colours))
(AcDbEntity::setColor poly 3)
(assert-equal "the polyline" 3 (cdr (assoc 62 (entget poly))))
(assert-equal "every vertex" (mapcar '(lambda (c) 3) (vertex-colours)) (vertex-colours))
(assert-equal "the line before it is untouched" 5 (cdr (assoc 62 (entget ln))))
(AcDbEntity::setColor poly 256)
(assert-equal "every vertex by layer again" (mapcar '(lambda (c) nil) (vertex-colours)) (vertex-colours))
(assert-equal "type not a string" *wrong* (status-text 'AcDb2dPolyline::setCurveType (list poly 1)))

(entmake '((0 . "3DFACE") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0) (12 1.0 1.0 0.0) (13 0.0 1.0 0.0)))
(setq face (entlast))
(assert-equal "hide edge 1" T (AcDbFace::makeEdgeInvisibleAt face 1))
(assert-equal "edge 1 hidden" 2 (cdr (assoc 70 (entget face))))
(AcDbFace::makeEdgeInvisibleAt face 3)
(assert-equal "edges 1 and 3 hidden" 10 (cdr (assoc 70 (entget face))))
(assert-equal "no edge 7: T, nothing changed" T (AcDbFace::makeEdgeInvisibleAt face 7))
(assert-equal "unchanged" 10 (cdr (assoc 70 (entget face))))
(assert-equal "an edge of a line: nil" nil (AcDbFace::makeEdgeInvisibleAt ln 0))
(assert-equal "edge index missing" *wrong* (status-text 'AcDbFace::makeEdgeInvisibleAt (list face)))

;;; Groups.

(defun group-names (/ d names)
  (setq d (dictsearch (namedobjdict) "ACAD_GROUP"))
  (foreach pair d (if (= (car pair) 3) (setq names (cons (cdr pair) names))))
  (reverse names))
(setq before (group-names))
(assert-equal "a missing group, not created" nil (ol_ol-GetGroup "RISERS"))
(assert-equal "nothing made" before (group-names))
(assert-equal "create flag nil: still nothing" nil (ol_ol-GetGroup "RISERS" nil T))
(setq g (ol_ol-GetGroup "RISERS" T))
(assert-equal "created" "GROUP" (cdr (assoc 0 (entget g))))
(assert-equal "listed under its name" (append before '("RISERS")) (group-names))
(assert-equal "not selectable by default" 0 (cdr (assoc 71 (entget g))))
(assert-equal "found again, not made twice" g (ol_ol-GetGroup "RISERS" T))
(assert-equal "found by any case" g (ol_ol-GetGroup "risers"))
(assert-equal "made selectable" 1 (cdr (assoc 71 (entget (ol_ol-GetGroup "DROPS" T T)))))
(assert-equal "set selectable" T (ol_ol-setGroupSelectable "RISERS" T))
(assert-equal "now selectable" 1 (cdr (assoc 71 (entget g))))
(assert-equal "set not selectable" T (ol_ol-setGroupSelectable "RISERS" nil))
(assert-equal "no longer selectable" 0 (cdr (assoc 71 (entget g))))
(assert-equal "an unknown group" nil (ol_ol-setGroupSelectable "NOPE" T))
(foreach c (list
  (list "group name not a string" 'ol_ol-GetGroup '(1) *wrong*)
  (list "selectable flag missing" 'ol_ol-setGroupSelectable '("RISERS") *wrong*)
  (list "no arguments" 'ol_ol-setGroupSelectable nil *wrong*))
  (assert-equal (car c) (cadddr c) (status-text (cadr c) (caddr c))))

;;; Host leaders.

(setq ld (AcDbLeader::create '(0.0 0.0 0.0) '(3.0 4.0 0.0) '(10.0 4.0 0.0)))
(assert-equal "a leader" "LEADER" (cdr (assoc 0 (entget ld))))
(assert-equal "through its points" '((0.0 0.0 0.0) (3.0 4.0 0.0) (10.0 4.0 0.0))
              (mapcar 'cdr (vl-remove-if-not '(lambda (p) (= (car p) 10)) (entget ld))))
(assert-equal "measured as a curve" 12.0 (AcDbCurve::getLength ld))
(assert-equal "on the current layer" (getvar "CLAYER") (cdr (assoc 8 (entget ld))))
(setq ld2 (AcDbLeader::create '(1.0 1.0 0.0) "stop" '(5.0 5.0 0.0)))
(assert-equal "reading stops at a non-point" 1 (cdr (assoc 76 (entget ld2))))
(setq bare (AcDbLeader::create))
(assert-equal "appended even without points" "LEADER" (cdr (assoc 0 (entget bare))))
(assert-equal "an entity without extents" nil (AcDbEntity::getGeomExtents bare))

;;; Model space refusing a new entity: the alert with the host's status, nil,
;;; nothing added and the document unlocked again.
(host:fault 'APPEND T)
(setq before (entlast))
(foreach c (list
  (list "a refused MText" 'AcDbMText::insert '("x" (0.0 0.0 0.0)))
  (list "a refused leader" 'AcDbLeader::create '((0.0 0.0 0.0) (1.0 1.0 0.0))))
  (host:clear-transcript)
  (host:queue-dialog "OK")
  (assert-equal (car c) nil (apply (cadr c) (caddr c)))
  (assert-equal (strcat (car c) ": the alert, answered") "[Alert] Failed to append entity!\n6\n  -> OK\n"
                (host:transcript))
  (assert-equal (strcat (car c) ": nothing added") before (entlast))
  (assert-equal (strcat (car c) ": unlocked") 0 (host:lock-state)))
(host:fault 'APPEND nil)
(assert-equal "appended again once model space takes entities" "MTEXT"
              (cdr (assoc 0 (entget (AcDbMText::insert "x" '(0.0 0.0 0.0))))))

(test-done)
