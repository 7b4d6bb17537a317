;;; The support services against real counterparts: zip archives written by
;;; Python's zipfile (hostile ones too), a local HTTP and HTTPS server and an
;;; SMTP sink, all started by tests/tools/services_env.py, which also checks
;;; our own archive and signature with other programs afterwards.

(test-file "services_test.lsp")
(setq tmp (getenv "TMP")
      zips (getenv "VANTRY_ZIPS")
      check (getenv "VANTRY_CHECK")
      http (getenv "VANTRY_HTTP")
      https (getenv "VANTRY_HTTPS")
      opts "HKEY_CURRENT_USER\\Software\\Vantry\\UserOptions"
      signing "HKEY_CURRENT_USER\\Software\\Vantry\\Signing")

;; (value . printed) of applying fn to args.
(defun call (fn args / r)
  (host:clear-transcript)
  (setq r (apply fn args))
  (cons r (host:transcript)))

(defun says (r pattern) (wcmatch (cdr r) pattern))

(defun slurp (path / f line all)
  (if (setq f (open path "r"))
    (progn
      (setq all "")
      (while (setq line (read-line f)) (setq all (strcat all line "\n")))
      (close f)
      all)))

(defun spit (path text / f)
  (setq f (open path "w"))
  (princ text f)
  (close f))

(defun leftovers (dir pattern / r)
  (foreach n (vl-directory-files dir pattern)
    (if (not (member n '("." ".."))) (setq r (cons n r))))
  (reverse r))

(setq e (chr 233))

(if (not (and zips http))
  (princ "\nSKIP services_test.lsp: run it through tests/tools/services_env.py (no servers, no archives)\n")
  (progn

;;; --- Zip archives ---------------------------------------------------------------

(setq out (strcat tmp "/good"))
(setq r (call 'ExtractZip (list (strcat zips "/good.zip") out)))
(assert-equal "python's archive extracts" '(T . "") r)
(assert-equal "entry content" "name,colour\nDUCT,1\n" (slurp (strcat out "/std/layers.csv")))
(assert-equal "nested entry with a non-ASCII name" (strcat "r" e "seau\n") (slurp (strcat out "/std/sub/r" e "seau.txt")))

;; Extracting into a folder that holds files: entries replace files of the
;; same name, other files stay.
(spit (strcat out "/readme.txt") "old")
(spit (strcat out "/mine.txt") "kept")
(assert-equal "extract over an existing folder" '(T . "") (call 'ExtractZip (list (strcat zips "/good.zip") out)))
(assert-equal "entry replaced the file" "hello\n" (slurp (strcat out "/readme.txt")))
(assert-equal "other file kept" "kept\n" (slurp (strcat out "/mine.txt")))

;; Our own archive, read back by us here and by Python's zipfile afterwards.
(setq ours (strcat check "/ours.zip"))
(setq r (call 'CreateZip (list ours (list (strcat out "/std") (strcat out "/readme.txt")))))
(assert-equal "CreateZip of a folder and a file" '(T . "") r)
(assert-equal "our archive extracts" '(T . "") (call 'ExtractZip (list ours (strcat tmp "/again"))))
(assert-equal "round trip" "name,colour\nDUCT,1\n" (slurp (strcat tmp "/again/std/layers.csv")))
(assert-equal "round trip of a top-level file" "hello\n" (slurp (strcat tmp "/again/readme.txt")))

;; A folder named with a trailing separator is still stored under its name.
(assert-equal "CreateZip of \"std/\"" '(T . "")
              (call 'CreateZip (list (strcat tmp "/slash.zip") (strcat out "/std/"))))
(call 'ExtractZip (list (strcat tmp "/slash.zip") (strcat tmp "/slash")))
(assert-equal "stored under its name" "name,colour\nDUCT,1\n" (slurp (strcat tmp "/slash/std/layers.csv")))

;; A failed CreateZip leaves the archive that was there.
(setq r (call 'CreateZip (list ours (list (strcat out "/std") (strcat tmp "/no-such-file")))))
(assert-true "missing source: nil and a message" (and (null (car r)) (says r "*no-such-file was not found*")))
(assert-equal "the archive is untouched" '(T . "") (call 'ExtractZip (list ours (strcat tmp "/again2"))))

;; Hostile archives: each refused with a message, nothing written anywhere.
(setq target (strcat tmp "/hostile"))
(vl-mkdir target)
(spit (strcat target "/first.txt") "old")
(vl-registry-write opts "ExtractLimitMB" 1)
(foreach case '(("slip.zip" "*would land outside*")
                ("absolute.zip" "*would land outside*")
                ("drive.zip" "*would land outside*")
                ("link.zip" "*is a link*")
                ("bomb.zip" "*beyond the limit of 1 MB*")
                ("liar.zip" "*beyond the sizes it declares*")
                ("damaged.zip" "*not extracted*")
                ("notazip.zip" "*cannot be opened*"))
  (setq r (call 'ExtractZip (list (strcat zips "/" (car case)) target)))
  (assert-true (strcat (car case) ": nil") (null (car r)))
  (assert-true (strcat (car case) ": message " (cdr r)) (says r (cadr case)))
  (assert-equal (strcat (car case) ": the folder as it was") '("first.txt") (leftovers target "*"))
  (assert-equal (strcat (car case) ": no temporary folder") nil (leftovers tmp ".*")))
(assert-equal "the damaged archive did not replace the file" "old\n" (slurp (strcat target "/first.txt")))
(assert-equal "nothing slipped out" nil (findfile (strcat tmp "/slipped.txt")))
(assert-equal "no absolute write" nil (findfile "/tmp/vantry_absolute.txt"))
(setq r (call 'ExtractZip (list (strcat zips "/liar.zip") (strcat tmp "/new/deeper/folder"))))
(assert-equal "a refused archive makes no parent folders" nil (vl-file-directory-p (strcat tmp "/new")))
(vl-registry-delete opts "ExtractLimitMB")
(assert-equal "the bomb within the default limit" '(T . "")
              (call 'ExtractZip (list (strcat zips "/bomb.zip") (strcat tmp "/bomb"))))

(assert-error "CreateZip with one argument" 'CreateZip (list ours) "ADS request error")
(assert-true "too few arguments said" (says (call 'vl-catch-all-apply (list 'ExtractZip (list "a.zip"))) "*Too few arguments passed.*"))
(assert-true "wrong type said" (says (call 'vl-catch-all-apply (list 'ExtractZip (list 1 "x"))) "*Wrong type of arguments passed.*"))

;;; --- Signatures -----------------------------------------------------------------

(setq text (strcat "Duct 400x250 " e "t" e))
(setq sig (signString text))
(assert-equal "signature is 88 base64 characters" 88 (strlen sig))
(assert-equal "the user's key is kept" 44 (strlen (vl-registry-read signing "PublicKey")))
(assert-equal "verifies" T (verifyString text sig))
(assert-equal "one character changed" nil (verifyString (strcat "Duct 400x251 " e "t" e) sig))
(assert-equal "a trailing space" nil (verifyString (strcat text " ") sig))
(assert-equal "signature cut short" nil (verifyString text (substr sig 1 80)))
(assert-equal "signature not base64" nil (verifyString text "not a signature"))
(assert-equal "signature empty" nil (verifyString text ""))
(assert-equal "signature with one character changed" nil
              (verifyString text (strcat (if (= (substr sig 1 1) "A") "B" "A") (substr sig 2))))
(setq key (vl-registry-read signing "PublicKey"))
(assert-equal "verifies with the key given" T (verifyString text sig key))
(assert-equal "a wrong key" nil (verifyString text sig "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA="))
(assert-true "a malformed key is bad data"
             (says (call 'vl-catch-all-apply (list 'verifyString (list text sig "short"))) "*Bad data passed .*"))
;; For the outside check: the text, its signature and the key.
(spit (strcat check "/signed.txt") (strcat text "\n" sig "\n" key))
;; A new key pair: old signatures fail under it and still pass under the old key.
(vl-registry-delete signing "SecretKey")
(vl-registry-delete signing "PublicKey")
(setq sig2 (signString text))
(assert-true "a new key was made" (/= key (vl-registry-read signing "PublicKey")))
(assert-equal "the old signature under the new key" nil (verifyString text sig))
(assert-equal "the old signature under the old key" T (verifyString text sig key))
(assert-equal "the new signature" T (verifyString text sig2))
(vl-registry-write signing "SecretKey" "damaged!")
(setq r (call 'signString (list text)))
(assert-true "a damaged key is reported, not replaced"
             (and (null (car r)) (says r "*damaged*") (= "damaged!" (vl-registry-read signing "SecretKey"))))

;;; --- Downloads ------------------------------------------------------------------

(setq dl (strcat tmp "/dl"))
(vl-mkdir dl)
(setq got (strcat dl "/file.txt"))
(assert-equal "download" '(T . "") (call 'DownloadFile (list (strcat http "/file.txt") got)))
(assert-equal "downloaded size" 960 (vl-file-size got))
(vl-file-delete got)
(assert-equal "a redirect is followed" '(T . "") (call 'DownloadFile (list (strcat http "/moved") got)))
(assert-equal "redirected size" 960 (vl-file-size got))
(spit got "old")
(vl-registry-write opts "DownloadLimitMB" 1)
(foreach case (list (list (strcat http "/missing") "*404*")
                    (list (strcat http "/loop") "*redirect*")
                    (list (strcat http "/to-file") "*not downloaded*")
                    (list (strcat http "/to-ftp") "*not downloaded*")
                    (list (strcat http "/big") "*larger than the limit of 1 MB*")
                    (list (strcat http "/big-chunked") "*larger than the limit of 1 MB*")
                    (list (strcat http "/drop") "*not downloaded*")
                    (list "http://127.0.0.1:1/x" "*not downloaded*")
                    (list "file:///etc/passwd" "*only http and https*")
                    (list "ftp://127.0.0.1/x" "*only http and https*"))
  (setq r (call 'DownloadFile (list (car case) got)))
  (assert-true (strcat (car case) ": nil") (null (car r)))
  (assert-true (strcat (car case) ": message " (cdr r)) (says r (cadr case)))
  (assert-equal (strcat (car case) ": the file as it was") "old\n" (slurp got))
  (assert-equal (strcat (car case) ": nothing beside it") '("file.txt") (leftovers dl "*")))
(setq r (call 'DownloadFile (list (strcat http "/drop") (strcat dl "/new.bin"))))
(assert-equal "a dropped download leaves nothing" '("file.txt") (leftovers dl "*"))
(vl-registry-delete opts "DownloadLimitMB")
(if https
  (progn
    (setq r (call 'DownloadFile (list (strcat https "/file.txt") (strcat dl "/tls.txt"))))
    (assert-true "a self-signed certificate is refused" (and (null (car r)) (says r "*certificate*")))
    (assert-equal "no file from the refused server" '("file.txt") (leftovers dl "*")))
  (princ "\nSKIP https cases: no HTTPS server could be started\n"))
(assert-true "wrong type" (says (call 'vl-catch-all-apply (list 'DownloadFile (list (strcat http "/file.txt") 7)))
                                "*Wrong type of arguments passed.*"))

;;; --- Error reports ----------------------------------------------------------------

(setvar "LOGFILEON" 1)
(princ "\nthe elbow went the wrong way")
(setq reports (strcat tmp "/reports"))
(vl-mkdir reports)
(vl-registry-write opts "BugReportFolder" reports)
(setq r (call 'ol_ol-submitBug '("Elbow 90 drawn mirrored")))
(assert-true "no server: saved, and the path answered" (and (= 'STR (type (car r))) (findfile (car r))))
(assert-true "no server: says where" (says r (strcat "*No mail server*saved as " (car r) "*")))
(setq report (slurp (car r)))
(assert-true "report: description" (wcmatch report "*Elbow 90 drawn mirrored*"))
(assert-true "report: drawing" (wcmatch report (strcat "*Drawing: *" (getvar "DWGNAME") "*")))
(assert-true "report: host release" (wcmatch report "*Host release: 25.0*"))
(assert-true "report: command line" (wcmatch report "*the elbow went the wrong way*"))

(setq db (strcat tmp "/report.db"))
(vt_create_db db)
(vt_connect db)
(vl-registry-write opts "MailServer" (getenv "VANTRY_SMTP"))
(vl-registry-write opts "MailTo" "support@example.com")
(vl-registry-write opts "MailFrom" "drafter@example.com")
(setq r (call 'ol_ol-submitBug '("Takeoff\nsecond line\n.\nafter a lone dot")))
(assert-equal "sent" '(T . "\nThe error report was sent to support@example.com.\n") r)
(setq mails (leftovers (getenv "VANTRY_MAIL_DIR") "*.eml"))
(assert-equal "one mail arrived" 1 (length mails))
(setq mail (slurp (strcat (getenv "VANTRY_MAIL_DIR") "/" (car mails))))
(assert-true "mail: envelope" (wcmatch mail "*X-Envelope-From: <drafter`@example.com>*X-Envelope-To: <support`@example.com>*"))
(assert-true "mail: subject" (wcmatch mail "*Subject: Vantry error report: Takeoff*"))
(assert-true "mail: the whole description, lone dot included" (wcmatch mail "*Takeoff*second line*\n.*after a lone dot*"))
(assert-true "mail: database and engine" (wcmatch mail (strcat "*Database: *report.db*Database engine: SQLite *")))

(setq r (call 'ol_ol-submitBug (list (strcat "Coude " e " 90"))))
(setq mail (slurp (strcat (getenv "VANTRY_MAIL_DIR") "/mail2.eml")))
(assert-true "a subject beyond ASCII is an encoded word"
             (and (car r) (wcmatch mail "*Subject: =?UTF-8?B?VmFudHJ5IGVycm9yIHJlcG9ydDogQ291ZGUgw6kgOTA=?=*")))
(if (getenv "VANTRY_SMTP_TLS")
  (progn
    (vl-registry-write opts "MailServer" (getenv "VANTRY_SMTP_TLS"))
    (setq r (call 'ol_ol-submitBug '("over TLS")))
    (assert-true "TLS offered is taken, and a self-signed certificate refused"
                 (and (= 'STR (type (car r))) (says r "*could not be sent*certificate*")))
    (assert-equal "nothing arrived in the clear" 2 (length (leftovers (getenv "VANTRY_MAIL_DIR") "*.eml"))))
  (princ "\nSKIP the STARTTLS case: no certificate could be made\n"))
(vl-registry-write opts "MailServer" "127.0.0.1:1")
(setq r (call 'ol_ol-submitBug '("server down")))
(assert-true "a server that refuses: saved instead"
             (and (= 'STR (type (car r))) (says r "*could not be sent*saved as*") (findfile (car r))))
(assert-true "wrong type" (says (call 'vl-catch-all-apply (list 'ol_ol-submitBug (list 12))) "*Wrong type of arguments passed.*"))
))

(test-done)
