;;; Arc and line intersections against points worked out by hand, and the
;;; platform's services: temporary folder, read-only files, network paths,
;;; compressed GUIDs, computer name, settings keys, screen size.
(test-file "platform_test.lsp")

(defun status-text (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))
;; A missing argument fails its reader and is reported as a wrong type.
(setq *few* "\nWrong type of arguments passed.\n"
      *wrong* *few*
      *bad* "\nBad data passed .\n")

(defun circle (x y r)
  (entmake (list '(0 . "CIRCLE") (list 10 x y 0.0) (cons 40 r)))
  (entlast))
(defun arc (x y r a0 a1)
  (entmake (list '(0 . "ARC") (list 10 x y 0.0) (cons 40 r) (cons 50 a0) (cons 51 a1)))
  (entlast))
(defun line (p q)
  (entmake (list '(0 . "LINE") (cons 10 p) (cons 11 q)))
  (entlast))

;;; Two circles and arcs of them.

(setq c0 (circle 0.0 0.0 5.0)              ; r 5 about the origin
      c8 (circle 8.0 0.0 5.0)              ; r 5 about (8,0): meets c0 at (4,+-3)
      cm8 (circle -8.0 0.0 5.0)            ; its mirror: meets c0 at (-4,+-3)
      far (circle 20.0 0.0 5.0)
      q1 (arc 0.0 0.0 5.0 0.0 (/ pi 2))    ; first quadrant of c0
      q3 (arc 0.0 0.0 5.0 pi (* 1.5 pi))   ; third quadrant
      q12 (arc 0.0 0.0 5.0 (/ pi 4) pi)    ; overlaps q1 from 45 to 90 degrees
      q2 (arc 0.0 0.0 5.0 (/ pi 2) pi)     ; meets q1 end to end at (0,5)
      wrap (arc 0.0 0.0 5.0 (* 1.75 pi) (/ pi 4)))  ; across angle 0
(setq outside (circle 7.0 0.0 2.0)          ; touches c0 from outside at (5,0)
      inside (circle 3.0 0.0 2.0))          ; touches c0 from inside at (5,0)
;; An arc whose normal points down: in its own plane it runs from 0 to 90
;; degrees, which in the world is the second quadrant, (-5,0) to (0,5).
(entmake (list '(0 . "ARC") '(10 0.0 0.0 0.0) '(40 . 5.0) '(50 . 0.0) (cons 51 (/ pi 2)) '(210 0.0 0.0 -1.0)))
(setq down (entlast))

(foreach c (list
  (list "two circles, ordered from the first's start" (ol_ol-intersectArcArc c0 c8) '((4.0 3.0 0.0) (4.0 -3.0 0.0)))
  (list "seen from the other circle, from its start" (ol_ol-intersectArcArc c8 c0) '((4.0 3.0 0.0) (4.0 -3.0 0.0)))
  (list "circles apart" (ol_ol-intersectArcArc c0 far) nil)
  (list "touching from outside: one point" (ol_ol-intersectArcArc c0 outside) '((5.0 0.0 0.0)))
  (list "touching from inside: one point" (ol_ol-intersectArcArc c0 inside) '((5.0 0.0 0.0)))
  (list "the smaller first" (ol_ol-intersectArcArc inside c0) '((5.0 0.0 0.0)))
  (list "concentric" (ol_ol-intersectArcArc inside (circle 3.0 0.0 4.0)) nil)
  (list "only the point on the arc" (ol_ol-intersectArcArc q1 c8) '((4.0 3.0 0.0)))
  (list "arc away from the other circle" (ol_ol-intersectArcArc q3 c8) nil)
  (list "that arc extended, ordered from its start" (ol_ol-intersectArcArc q3 c8 1) '((4.0 -3.0 0.0) (4.0 3.0 0.0)))
  (list "extending the circle changes nothing" (ol_ol-intersectArcArc q3 c8 2) nil)
  (list "nil for the default mode" (ol_ol-intersectArcArc q3 c8 nil) nil)
  (list "an arc across angle 0" (ol_ol-intersectArcArc wrap c8) '((4.0 -3.0 0.0) (4.0 3.0 0.0)))
  (list "arc facing down" (ol_ol-intersectArcArc down cm8) '((-4.0 3.0 0.0)))
  (list "arc facing down, second" (ol_ol-intersectArcArc cm8 down) '((-4.0 3.0 0.0)))
  (list "arc facing down against a first-quadrant arc" (ol_ol-intersectArcArc down q1) '((0.0 5.0 0.0)))
  ;; Arcs of one circle meet along their overlap: its ends.
  (list "overlapping arcs" (ol_ol-intersectArcArc q1 q12)
        (list (list (* 5 (cos (/ pi 4))) (* 5 (sin (/ pi 4))) 0.0) '(0.0 5.0 0.0)))
  (list "arcs end to end" (ol_ol-intersectArcArc q1 q2) '((0.0 5.0 0.0)))
  (list "arcs of one circle apart" (ol_ol-intersectArcArc q1 q3) nil)
  (list "an arc on its own circle" (ol_ol-intersectArcArc c0 q3) '((-5.0 0.0 0.0) (0.0 -5.0 0.0)))
  (list "one circle twice meets everywhere: no points" (ol_ol-intersectArcArc c0 c0) nil))
  (assert-equal (car c) (caddr c) (cadr c)))

;;; A line and an arc.

(setq across (line '(-10.0 3.0 0.0) '(10.0 3.0 0.0))
      back (line '(10.0 3.0 0.0) '(-10.0 3.0 0.0))
      half (line '(0.0 3.0 0.0) '(10.0 3.0 0.0))
      short (line '(-10.0 3.0 0.0) '(-6.0 3.0 0.0))
      tangent (line '(-10.0 5.0 0.0) '(10.0 5.0 0.0))
      miss (line '(-10.0 6.0 0.0) '(10.0 6.0 0.0))
      diagonal (line '(0.0 0.0 0.0) '(10.0 10.0 0.0))
      upright (line '(3.0 4.0 -1.0) '(3.0 4.0 1.0))
      upmiss (line '(1.0 1.0 -1.0) '(1.0 1.0 1.0))
      above (line '(-10.0 3.0 1.0) '(10.0 3.0 1.0)))
(foreach c (list
  (list "a chord" (ol_ol-intersectArcLine c0 across) '((-4.0 3.0 0.0) (4.0 3.0 0.0)))
  (list "ordered along the line" (ol_ol-intersectArcLine c0 back) '((4.0 3.0 0.0) (-4.0 3.0 0.0)))
  (list "line first" (ol_ol-intersectLineArc across c0) '((-4.0 3.0 0.0) (4.0 3.0 0.0)))
  (list "a line from the centre" (ol_ol-intersectArcLine c0 half) '((4.0 3.0 0.0)))
  (list "a tangent: one point" (ol_ol-intersectArcLine c0 tangent) '((0.0 5.0 0.0)))
  (list "a line missing the circle" (ol_ol-intersectArcLine c0 miss) nil)
  (list "missing, extended both" (ol_ol-intersectArcLine c0 miss 3) nil)
  (list "a diagonal" (ol_ol-intersectArcLine c0 diagonal) (list (list (/ 5 (sqrt 2)) (/ 5 (sqrt 2)) 0.0)))
  (list "a short segment" (ol_ol-intersectArcLine c0 short) nil)
  (list "the segment extended (second)" (ol_ol-intersectArcLine c0 short 2) '((-4.0 3.0 0.0) (4.0 3.0 0.0)))
  (list "extending the circle reaches nothing" (ol_ol-intersectArcLine c0 short 1) nil)
  (list "line first, extended (first)" (ol_ol-intersectLineArc short c0 1) '((-4.0 3.0 0.0) (4.0 3.0 0.0)))
  (list "line first, arc extended" (ol_ol-intersectLineArc short c0 2) nil)
  (list "on the arc only" (ol_ol-intersectArcLine q1 across) '((4.0 3.0 0.0)))
  (list "the arc extended" (ol_ol-intersectArcLine q1 across 1) '((-4.0 3.0 0.0) (4.0 3.0 0.0)))
  (list "arc facing down" (ol_ol-intersectArcLine down across) '((-4.0 3.0 0.0)))
  (list "through the plane, on the circle" (ol_ol-intersectArcLine c0 upright) '((3.0 4.0 0.0)))
  (list "through the plane, inside" (ol_ol-intersectArcLine c0 upmiss) nil)
  (list "a parallel plane" (ol_ol-intersectArcLine c0 above) nil))
  (assert-equal (car c) (caddr c) (cadr c)))

;; Tangency all round the circle: rounding must not split the one point of
;; contact into two, nor lose it.
(setq a 0.05 bad-circles nil bad-lines nil)
(repeat 120
  (setq at (list (* 5 (cos a)) (* 5 (sin a)) 0.0))
  (setq r (ol_ol-intersectArcArc c0 (circle (* 6.7 (cos a)) (* 6.7 (sin a)) 1.7)))
  (if (not (and (= (length r) 1) (equal (car r) at 1e-9))) (setq bad-circles (cons a bad-circles)))
  (setq d (list (* -7 (sin a)) (* 7 (cos a)) 0.0))
  (setq r (ol_ol-intersectArcLine c0 (line (mapcar '+ at d) (mapcar '- at d))))
  (if (not (and (= (length r) 1) (equal (car r) at 1e-9))) (setq bad-lines (cons a bad-lines)))
  (setq a (+ a 0.0517)))
(assert-equal "touching circles all round: one point each" nil bad-circles)
(assert-equal "tangent lines all round: one point each" nil bad-lines)

;; Bad input.
(setq dot (line '(1.0 1.0 0.0) '(1.0 1.0 0.0)))
(foreach c (list
  (list "nothing" 'ol_ol-intersectArcArc nil *few*)
  (list "one arc" 'ol_ol-intersectArcArc (list c0) *few*)
  (list "a line for an arc" 'ol_ol-intersectArcArc (list c0 across) *bad*)
  (list "a string for an arc" 'ol_ol-intersectArcArc (list "c0" c8) *wrong*)
  (list "mode 4" 'ol_ol-intersectArcArc (list c0 c8 4) *bad*)
  (list "mode -1" 'ol_ol-intersectArcLine (list c0 across -1) *bad*)
  (list "mode a real" 'ol_ol-intersectArcLine (list c0 across 1.0) *wrong*)
  (list "mode a string" 'ol_ol-intersectLineArc (list across c0 "1") *wrong*)
  (list "arc, no line" 'ol_ol-intersectArcLine (list c0) *few*)
  (list "a circle for a line" 'ol_ol-intersectArcLine (list c0 c8) *bad*)
  (list "line and arc swapped" 'ol_ol-intersectLineArc (list c0 across) *bad*)
  (list "a line of no length" 'ol_ol-intersectLineArc (list dot c0) *bad*)
  (list "a point for a line" 'ol_ol-intersectLineArc (list '(0.0 0.0) c0) *wrong*))
  (assert-equal (car c) (cadddr c) (status-text (cadr c) (caddr c))))
(entdel far)
(assert-equal "an erased circle" *bad* (status-text 'ol_ol-intersectArcArc (list c0 far)))

;;; The temporary folder: a folder one can write to, ending in a separator.

(setq tmpdir (GetTempPath))
(assert-equal "temp path ends in a separator" "/" (substr tmpdir (strlen tmpdir)))
(setq scratch (strcat tmpdir "platform-scratch.txt"))
(setq f (open scratch "w"))
(assert-true "temp path can be written" f)
(write-line "x" f)
(close f)

;;; Read-only files.

(foreach c (list
  (list "a file just written" (IsFileReadOnly scratch) nil)
  (list "a file nobody may write" (IsFileReadOnly "/proc/version") T)
  (list "a missing file" (IsFileReadOnly (strcat tmpdir "no-such-file.txt")) nil))
  (assert-equal (car c) (caddr c) (cadr c)))

;;; Network paths.

(foreach c (list
  (list "a share by name" (PathIsNetworkPath "\\\\server\\share\\job\\plan.dwg") T)
  (list "forward slashes" (PathIsNetworkPath "//server/share") T)
  (list "a local file" (PathIsNetworkPath scratch) nil)
  (list "a local file not yet written" (PathIsNetworkPath (strcat tmpdir "later\\plan.dwg")) nil)
  (list "a relative name" (PathIsNetworkPath "plan.dwg") nil)
  (list "the root" (PathIsNetworkPath "/") nil)
  (list "an empty name" (PathIsNetworkPath "") nil))
  (assert-equal (car c) (caddr c) (cadr c)))

;;; Compressed GUIDs: 22 digits, the first of 2 bits, the rest of 6 bits,
;;; carrying a random (version 4, standard variant) GUID.

(setq *digits* "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$")
(defun digit (g i / ch k)
  (setq ch (substr g (1+ i) 1) k 0)
  (while (and (< k 64) (/= ch (substr *digits* (1+ k) 1))) (setq k (1+ k)))
  k)
(setq guids nil ok T n 0)
(repeat 40
  (setq g (CreateCompressedGuidString))
  (if (or (/= (strlen g) 22)
          (> (digit g 0) 3)
          (vl-some '(lambda (i) (= (digit g i) 64)) '(1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21))
          ;; bits 48-51 (the version, 0100) lie across digits 8 and 9
          (/= (rem (digit g 8) 4) 1) (>= (digit g 9) 16)
          ;; bits 64-65 (the variant, 10) are bits 2-3 of digit 11
          (/= (logand (/ (digit g 11) 4) 3) 2)
          (member g guids))
      (setq ok g))
  (setq guids (cons g guids)))
(assert-equal "forty GUIDs well formed and different" T ok)

;;; The computer's name: the platform's short upper-case name.

(setq host (GetComputerName))
(assert-true "computer name is a string" (= (type host) 'STR))
(assert-true "computer name at most 15 characters" (<= 1 (strlen host) 15))
(assert-equal "computer name upper case" (strcase host) host)

;;; Settings keys.

(vl-registry-write "HKEY_CURRENT_USER\\Software\\PlatformTest\\Beta" "v" 1)
(vl-registry-write "HKEY_CURRENT_USER\\Software\\PlatformTest\\alpha" "v" 2)
(vl-registry-write "HKEY_CURRENT_USER\\Software\\PlatformTest\\Gamma\\Deep" "v" 3)
(vl-registry-write "HKEY_CURRENT_USER\\Software\\PlatformTestOther" "v" 4)
(foreach c (list
  (list "subkeys in order, not their children" (RegEnumKey "HKEY_CURRENT_USER\\Software\\PlatformTest")
        '("ALPHA" "BETA" "GAMMA"))
  (list "short root, path apart" (RegEnumKey "HKCU" "Software\\PlatformTest\\Gamma") '("DEEP"))
  (list "any case" (RegEnumKey "hkey_current_user\\software\\platformtest\\gamma") '("DEEP"))
  (list "a key without subkeys" (RegEnumKey "HKCU\\Software\\PlatformTest\\Beta") nil)
  (list "a missing key" (RegEnumKey "HKCU\\Software\\NoSuchKeyHere") nil)
  (list "a root" (car (member "SOFTWARE" (RegEnumKey "HKEY_CURRENT_USER"))) "SOFTWARE"))
  (assert-equal (car c) (caddr c) (cadr c)))

;;; Screen size: the session's configured screen.

(assert-equal "default screen" '(1000 800) (list (GetSystemMetrics::SM_CXSCREEN) (GetSystemMetrics::SM_CYSCREEN)))
(host:set-sysvar "SCREENSIZE" '(1920.0 1080.0))
(assert-equal "configured screen" '(1920 1080) (list (GetSystemMetrics::SM_CXSCREEN) (GetSystemMetrics::SM_CYSCREEN)))

;;; Bad arguments to the platform's functions.

(foreach c (list
  (list "read-only of nothing" 'IsFileReadOnly nil *few*)
  (list "read-only of a number" 'IsFileReadOnly '(1) *wrong*)
  (list "network of nothing" 'PathIsNetworkPath nil *few*)
  (list "network of a list" 'PathIsNetworkPath '((1 2 3)) *wrong*)
  (list "keys of nothing" 'RegEnumKey nil *few*)
  (list "keys of a number" 'RegEnumKey '(7) *wrong*)
  (list "keys below a number" 'RegEnumKey '("HKCU" 7) *wrong*)
  (list "keys of an unknown root" 'RegEnumKey '("HKEY_NOWHERE\\Software") *bad*))
  (assert-equal (car c) (cadddr c) (status-text (cadr c) (caddr c))))

(test-done)
