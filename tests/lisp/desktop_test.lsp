;;; The host's window and status bar, the user's known folders, opening
;;; files, folders and help through the shell, and the folder, open and save
;;; dialogs answered by the scripted person.
(test-file "desktop_test.lsp")

;; Headless, whatever the machine running the tests has: nothing may open.
(setenv "DISPLAY" "")
(setenv "WAYLAND_DISPLAY" "")

(defun said (fn args)
  (capture-transcript (list 'lambda nil (list 'vl-catch-all-apply (list 'quote fn) (list 'quote args)))))
(defun answer (fn args) (vl-catch-all-apply fn args))
(setq *wrong* "\nWrong type of arguments passed.\n"
      *bad* "\nBad data passed .\n")
(defun bad-args (cases)
  (foreach c cases
    (assert-equal (car c) (caddr c) (said (cadr c) (cadddr c)))))
(defun count-of (pattern text / n at)
  (setq n 0 at 0)
  (while (setq at (vl-string-search pattern text at)) (setq n (1+ n) at (1+ at)))
  n)
(defun write-file (path text / f)
  (setq f (open path "w"))
  (if text (write-line text f))
  (close f)
  path)

(setq tmp (strcat (getenv "TMP") "/desktop"))
;; What an earlier run left would answer for folders this run must make.
(if (vl-file-directory-p tmp) (vt_rmdir tmp T))
(vl-mkdir tmp)

;;; The status bar's progress meter: a line per visible step on a transcript
;;; that is not a terminal.

(setq out (capture-transcript '(lambda () (setq r (acedSetStatusBarProgressMeter "Counting fittings" 0 10)))))
(assert-equal "a meter is shown" T r)
(assert-equal "at its start" "[Progress] Counting fittings 0%\n" out)
(assert-equal "the host holds it" '("Counting fittings" 0 10 0) (host:status-bar))
(foreach c '((3 "[Progress] Counting fittings 30%\n" 3)
             (3 "" 3)                                     ; no step, no line
             (7.9 "[Progress] Counting fittings 70%\n" 7)  ; a real is truncated
             (50 "[Progress] Counting fittings 100%\n" 10) ; kept within the range
             (-5 "[Progress] Counting fittings 0%\n" 0))
  (setq out (capture-transcript (list 'lambda nil (list 'setq 'r (list 'acedSetStatusBarProgressMeterPos (car c))))))
  (assert-equal (strcat "moved to " (vl-princ-to-string (car c))) (list T (cadr c) (caddr c))
                (list r out (nth 3 (host:status-bar)))))
(setq out (capture-transcript '(lambda () (princ "Working") (acedSetStatusBarProgressMeterPos 5))))
(assert-equal "a step after text starts a line of its own" "Working\n[Progress] Counting fittings 50%\n" out)

;; A thousand positions are a hundred visible steps.
(acedSetStatusBarProgressMeter "Reading" 0 1000)
(setq i 0 all T)
(setq out (capture-transcript '(lambda () (repeat 1000 (setq all (and all (acedSetStatusBarProgressMeterPos (setq i (1+ i)))))))))
(assert-equal "every position answered" T all)
(assert-equal "one line per percent" 100 (count-of "[Progress] Reading " out))
(assert-equal "the last one full" T (= (substr out (- (strlen out) 12)) "Reading 100%\n"))

(setq out (capture-transcript '(lambda () (acedSetStatusBarProgressMeter "Second" -4 4))))
(assert-equal "a new meter replaces the old" "[Progress] Reading closed\n[Progress] Second 0%\n" out)
(acedSetStatusBarProgressMeterPos 2)
(assert-equal "a range below zero" '("Second" -4 4 2) (host:status-bar))
(setq out (capture-transcript '(lambda () (setq r (acedRestoreStatusBar)))))
(assert-equal "restored: nil" nil r)
(assert-equal "the meter is closed" "[Progress] Second closed\n" out)
(assert-equal "and gone" nil (host:status-bar))
(assert-equal "no meter to move" nil (acedSetStatusBarProgressMeterPos 1))
(assert-equal "restoring twice says nothing" "" (said 'acedRestoreStatusBar nil))
(setq out (capture-transcript '(lambda () (acedSetStatusBarProgressMeter "Empty range" 3 3))))
(assert-equal "an empty range is full at once" "[Progress] Empty range 100%\n" out)
(acedRestoreStatusBar)

(bad-args (list
  (list "maximum below minimum" 'acedSetStatusBarProgressMeter *bad* '("Down" 10 0))
  (list "a label that is no string" 'acedSetStatusBarProgressMeter *wrong* '(1 0 10))
  (list "a bound that is no number" 'acedSetStatusBarProgressMeter *wrong* '("x" 0 "10"))
  (list "no maximum" 'acedSetStatusBarProgressMeter *wrong* '("x" 0))
  (list "nothing" 'acedSetStatusBarProgressMeter *wrong* nil)
  (list "a position that is no number" 'acedSetStatusBarProgressMeterPos *wrong* '("5"))
  (list "no position" 'acedSetStatusBarProgressMeterPos *wrong* nil)))
(assert-equal "a refused meter is not shown" nil (host:status-bar))

;;; The main window: caption, enabled state, z-order.

(defun window (key) (cdr (assoc key (host:main-window))))
(setq caption (strcat (getvar "PRODUCT") " 2025 - [" (getvar "DWGNAME") "]"))
(assert-equal "the host's own caption" caption (ol_ol-getAcadWindowText))
(host:new-document)
(assert-equal "it follows the current drawing" (strcat (getvar "PRODUCT") " 2025 - [" (getvar "DWGNAME") "]")
              (ol_ol-getAcadWindowText))
(assert-equal "set: the text" "Vantry – Project 12" (ol_ol-setAcadWindowText "Vantry – Project 12"))
(assert-equal "read back" "Vantry – Project 12" (ol_ol-getAcadWindowText))
(assert-equal "on the window" "Vantry – Project 12" (window "text"))
(host:new-document)
(assert-equal "a caption set stays" "Vantry – Project 12" (ol_ol-getAcadWindowText))
(assert-equal "an empty caption" "" (progn (ol_ol-setAcadWindowText "") (ol_ol-getAcadWindowText)))

(assert-equal "enabled to start with" T (window "enabled"))
(assert-equal "disabled: T" T (ol_ol-disableAutoCADWindow))
(assert-equal "the window is disabled" nil (window "enabled"))
(assert-equal "disabling twice" T (ol_ol-disableAutoCADWindow))
(assert-equal "enabled: T" T (ol_ol-enableAutoCADWindow))
(assert-equal "the window is enabled" T (window "enabled"))
(assert-equal "on top to start with" "top" (window "z-order"))
(assert-equal "sent back: T" T (ol_ol-sendToBack))
(assert-equal "behind the others" "bottom" (window "z-order"))
(assert-equal "still the active window" T (window "active"))

(bad-args (list
  (list "a caption that is no string" 'ol_ol-setAcadWindowText *wrong* '(12))
  (list "no caption" 'ol_ol-setAcadWindowText *wrong* nil)))
(assert-equal "a refused caption changes nothing" "" (ol_ol-getAcadWindowText))

;;; Known folders, from the user's XDG folders under HOME.

(setq home (strcat tmp "/home"))
(vl-mkdir home)
(vl-mkdir (strcat home "/.config"))
(setenv "HOME" home)
(setenv "XDG_CONFIG_HOME" (strcat home "/.config"))
(foreach v '("XDG_DATA_HOME" "XDG_CACHE_HOME" "XDG_DATA_DIRS") (setenv v ""))
(write-file (strcat home "/.config/user-dirs.dirs")
            (strcat "# written by the test\nXDG_DOCUMENTS_DIR=\"$HOME/My Docs\"\n"
                    "XDG_PICTURES_DIR=\"" tmp "/pictures\"\nXDG_MUSIC_DIR=\"$HOME\""))
(foreach c (list
  (list "documents, not made yet" 5 nil)
  (list "documents, made on asking" (+ 5 32768) (strcat home "/My Docs"))
  (list "documents, now there" 5 (strcat home "/My Docs"))
  (list "pictures at an absolute path" (+ 39 32768) (strcat tmp "/pictures"))
  (list "music at home itself" 13 home)
  (list "videos not configured: home" 14 home)
  (list "the desktop's own default, missing" 0 nil)
  (list "the desktop made" 32768 (strcat home "/Desktop"))
  (list "the desktop folder is the desktop" 16 (strcat home "/Desktop"))
  (list "the profile" 40 home)
  (list "settings" 26 (strcat home "/.config"))
  (list "local settings, missing" 28 nil)
  (list "local settings made" (+ 28 32768) (strcat home "/.local/share")))
  (assert-equal (car c) (caddr c) (ol_ol-SHGetFolderPath (cadr c))))
(assert-true "a folder asked to be made exists" (vl-file-directory-p (strcat home "/My Docs")))
(setenv "XDG_CACHE_HOME" (strcat tmp "/cache/"))
(assert-equal "a base folder from its variable, without its closing separator" (strcat tmp "/cache")
              (ol_ol-SHGetFolderPath (+ 32 32768)))
(bad-args (list
  (list "a folder this system does not have" 'ol_ol-SHGetFolderPath *bad* '(36))
  (list "no folder at all" 'ol_ol-SHGetFolderPath *bad* '(999))
  (list "a name for a number" 'ol_ol-SHGetFolderPath *wrong* '("Personal"))
  (list "nothing" 'ol_ol-SHGetFolderPath *wrong* nil)))

;;; Opening through the shell, headless: the transcript says what would open.

(setq readme (write-file (strcat tmp "/readme.txt") "Read me"))
(vl-mkdir (strcat tmp "/help"))
(setq chm (write-file (strcat tmp "/help/product.chm") nil))
(write-file (strcat tmp "/help/ducts.htm") "<p>Ducts</p>")
(foreach c (list
  (list "a file" (list readme) (strcat "[Shell] would open " readme "\n") T)
  (list "an address" '("https://example.com/ducts?size=12") "[Shell] would open https://example.com/ducts?size=12\n" T)
  (list "a file in a folder" (list "readme.txt" nil nil tmp) (strcat "[Shell] would open " readme "\n") T)
  (list "a file to edit" (list readme nil "Edit") (strcat "[Shell] would open " readme "\n") T)
  (list "exploring a file shows its folder" (list readme nil "explore") (strcat "[Shell] would open " tmp "\n") T)
  (list "a program with its parameters" '("/bin/sh" "-c \"exit 0\"") "[Shell] would run /bin/sh -c \"exit 0\"\n" T)
  (list "no such file" (list (strcat tmp "/missing.txt"))
        (strcat "\nCannot open \"" tmp "/missing.txt\": The system cannot find the file specified.\n") nil)
  (list "no such folder" (list (strcat tmp "/nowhere/missing.txt"))
        (strcat "\nCannot open \"" tmp "/nowhere/missing.txt\": The system cannot find the path specified.\n") nil)
  (list "a verb no program answers" (list readme nil "print")
        (strcat "\nCannot open \"" readme "\": No application is associated with the specified file for this operation.\n") nil))
  (assert-equal (car c) (list (caddr c) (cadddr c))
                (list (said 'ol_ol-shellExecute (cadr c)) (answer 'ol_ol-shellExecute (cadr c)))))
(bad-args (list
  (list "no file" 'ol_ol-shellExecute *wrong* nil)
  (list "a file that is no string" 'ol_ol-shellExecute *wrong* '(1))
  (list "parameters that are no string" 'ol_ol-shellExecute *wrong* (list readme 5))
  (list "a verb that is no string" 'ol_ol-shellExecute *wrong* (list readme nil 3))))

(foreach c (list
  (list "a file in its folder" (list readme) (strcat "[Shell] would show " readme " in " tmp "\n") T)
  (list "a folder in its parent" (list (strcat tmp "/help/")) (strcat "[Shell] would show " tmp "/help in " tmp "\n") T)
  (list "nothing there" (list (strcat tmp "/gone.dwg"))
        (strcat "\nCannot show \"" tmp "/gone.dwg\": The system cannot find the file specified.\n") nil))
  (assert-equal (car c) (list (caddr c) (cadddr c))
                (list (said 'ol_ol-SHOpenFolderAndSelect (cadr c)) (answer 'ol_ol-SHOpenFolderAndSelect (cadr c)))))
(bad-args (list
  (list "no path" 'ol_ol-SHOpenFolderAndSelect *wrong* nil)
  (list "a path that is no string" 'ol_ol-SHOpenFolderAndSelect *wrong* '(nil))))

;;; Help: a file, a place in it, a folder of pages, an address, or found in
;;; the host's support folders.

(host:set-sysvar "ACADPREFIX" (strcat tmp "/nothing here;" tmp "/help;"))
(foreach c (list
  (list "the help file" (list chm) (strcat "[Shell] would open " chm "\n") T)
  (list "a topic in it" (list chm "ducts") (strcat "[Shell] would open file://" chm "#ducts\n") T)
  (list "found in a support folder" '("product.chm") (strcat "[Shell] would open " chm "\n") T)
  (list "a folder of pages" (list (strcat tmp "/help") "ducts.htm") (strcat "[Shell] would open " tmp "/help/ducts.htm\n") T)
  (list "an address" '("https://help.example/vantry" "ducts") "[Shell] would open https://help.example/vantry#ducts\n" T)
  (list "a topic of nil" (list chm nil) (strcat "[Shell] would open " chm "\n") T)
  (list "no such help" '("nohelp.chm") "\nCannot find the help file \"nohelp.chm\".\n" nil))
  (assert-equal (car c) (list (caddr c) (cadddr c))
                (list (said 'ol_ol-showHelp (cadr c)) (answer 'ol_ol-showHelp (cadr c)))))
(bad-args (list
  (list "no help file" 'ol_ol-showHelp *wrong* nil)
  (list "an empty name" 'ol_ol-showHelp *bad* '(""))
  (list "a topic that is no string" 'ol_ol-showHelp *wrong* (list chm 3))))

;;; The folder dialog.

(vl-mkdir (strcat tmp "/jobs"))
(vl-mkdir (strcat tmp "/jobs/J-101"))
(defun folder-dialog (answers args)
  (if answers (apply 'host:queue-dialog answers))
  (setq *args* args)
  (setq out (capture-transcript '(lambda () (setq *r* (vl-catch-all-apply 'XFolderDialog *args*)))))
  *r*)
(assert-equal "nothing queued: cancelled" nil (folder-dialog nil nil))
(assert-equal "and said so" "[Browse For Folder] -> Cancel (no answer queued)\n" out)
(assert-equal "the person cancels" nil (folder-dialog '("Cancel") '("Job folder")))
(assert-equal "under its title" "[Job folder] -> Cancel\n" out)
(assert-equal "a folder chosen" (strcat tmp "/jobs") (folder-dialog (list (strcat tmp "/jobs/")) '("Job folder")))
(assert-equal "a folder chosen from where it starts" (strcat tmp "/jobs/J-101")
              (folder-dialog '("J-101") (list "Job folder" (strcat tmp "/jobs"))))
(assert-equal "upwards from where it starts" tmp (folder-dialog '("..") (list nil (strcat tmp "/jobs"))))
(assert-equal "a file is no folder" nil (folder-dialog (list readme) nil))
(assert-equal "the dialog says why" (strcat "[Browse For Folder] -> " readme "\n  (\"" readme "\" is not a folder: cancelled)\n") out)
(assert-equal "no such folder" nil (folder-dialog '("J-999") (list nil (strcat tmp "/jobs"))))
(assert-equal "nothing left queued" 0 (host:queue-dialog))
(bad-args (list
  (list "a title that is no string" 'XFolderDialog *wrong* '(1))
  (list "a folder that is no string" 'XFolderDialog *wrong* '("Pick" 2))))

;;; The open and save dialogs.

(setq drawings (strcat tmp "/drawings"))
(vl-mkdir drawings)
(setq plan (write-file (strcat drawings "/plan.dwg") nil))
(defun file-dialog (answers args)
  (if answers (apply 'host:queue-dialog answers))
  (setq *args* args)
  (setq out (capture-transcript '(lambda () (setq *r* (vl-catch-all-apply 'CFileDialog *args*)))))
  *r*)
(assert-equal "open, nothing queued: cancelled" nil (file-dialog nil '(T)))
(assert-equal "said so" "[Open] -> Cancel (no answer queued)\n" out)
(assert-equal "open: a file" plan (file-dialog (list plan) '(T)))
(assert-equal "open: a name in the folder offered, the extension added" plan
              (file-dialog '("plan") (list T "dwg" (strcat drawings "/new.dwg") "Drawings (*.dwg)|*.dwg||")))
(assert-equal "open: a file that is not there" nil (file-dialog '("site") (list T "dwg" (strcat drawings "/"))))
(assert-equal "told" (strcat "[Open] -> site\n  (\"" drawings "/site.dwg\" does not exist: cancelled)\n") out)
(assert-equal "save: a new name" (strcat drawings "/site.dxf")
              (file-dialog '("site") (list nil ".dxf" (strcat drawings "/") nil "Export the plan")))
(assert-equal "under its title" "[Export the plan] -> site\n" out)
(assert-equal "save: no replacing when the person says no" nil (file-dialog '("plan.dwg" "No") (list nil "dwg" (strcat drawings "/"))))
(assert-true "asked first" (vl-string-search "[Confirm Save As] plan.dwg already exists." out))
(assert-equal "save: replacing when the person says yes" plan (file-dialog '("plan.dwg" "Yes") (list nil "dwg" (strcat drawings "/"))))
(assert-equal "save: into a folder that is not there" nil (file-dialog (list (strcat tmp "/none/x.dwg")) '(nil)))
(assert-equal "a folder is no file" nil (file-dialog (list drawings) '(T)))
(assert-equal "nothing left queued" 0 (host:queue-dialog))
(bad-args (list
  (list "nothing" 'CFileDialog *wrong* nil)
  (list "a list for the kind" 'CFileDialog *wrong* '(("open")))
  (list "an extension that is no string" 'CFileDialog *wrong* '(T 5))
  (list "a title that is no string" 'CFileDialog *wrong* '(T nil nil nil 7))))

(test-done)
