;;; test-dap-sorrel.el --- Emacs debugs a program -*- lexical-binding: t; -*-

;;; Commentary:

;; Run in a home folder of its own.

;;; Code:

(require 'ert)
(require 'cl-lib)
(package-initialize)
(setq lsp-session-file (expand-file-name "lsp-session" user-emacs-directory)
      dap-breakpoints-file (expand-file-name "breakpoints" user-emacs-directory)
      dap-auto-show-output nil
      dap-auto-configure-features nil
      create-lockfiles nil)
(require 'dap-mode)

(defconst test-root (expand-file-name "../../.." (file-name-directory load-file-name)))
(load (expand-file-name "editors/emacs/dap-sorrel.el" test-root))

(defconst test-patience
  (string-to-number (or (getenv "MORVIK_TEST_PATIENCE") "60")))

(defun test-until (condition)
  "Wait until CONDITION, a function, returns true; return that."
  (with-timeout (test-patience (error "Nothing came of %S" condition))
    (let (found)
      (while (not (setq found (funcall condition)))
        (accept-process-output nil 0.01))
      found)))

(defun test-program (text)
  "Return the path of a new program with TEXT."
  (let ((file (make-temp-file "morvik-" nil ".py" text)))
    (file-truename file)))

(defun test-stopped-line ()
  "Return the line at which the session has stopped, if it has."
  (let ((session (dap--cur-session)))
    (when-let ((frame (and session (dap--debug-session-active-frame session))))
      (gethash "line" frame))))

(defun test-evaluate (expression)
  "Return what EXPRESSION evaluates to in the frame that is active."
  (let ((session (dap--cur-session)))
    (gethash "result"
             (dap-request session "evaluate" :expression expression :context "watch"
                          :frameId (gethash "id" (dap--debug-session-active-frame session))))))

(defun test-variable (name)
  "Return the value of the variable NAME of the frame that is active, by opening its scopes."
  (let* ((session (dap--cur-session))
         (frame (gethash "id" (dap--debug-session-active-frame session)))
         (scopes (gethash "scopes" (dap-request session "scopes" :frameId frame)))
         (variables (gethash "variables"
                             (dap-request session "variables" :variablesReference
                                          (gethash "variablesReference" (elt scopes 0))))))
    (gethash "value" (cl-find name variables :test #'string=
                              :key (lambda (variable) (gethash "name" variable))))))

(defun test-thread-name ()
  "Return the name of the thread that is active."
  (let* ((session (dap--cur-session))
         (threads (gethash "threads" (dap-request session "threads"))))
    (gethash "name" (cl-find (dap--debug-session-thread-id session) threads
                             :key (lambda (thread) (gethash "id" thread))))))

(defun test-output ()
  "Return what the program has written."
  (with-current-buffer (dap--debug-session-output-buffer (dap--cur-session))
    (buffer-substring-no-properties (point-min) (point-max))))

(defun test-set-breakpoint (file line)
  "Visit FILE and set a breakpoint at LINE."
  (find-file file)
  (dap-mode 1)
  (goto-char (point-min))
  (forward-line (1- line))
  (dap-breakpoint-add))

(ert-deftest a-program-is-launched ()
  "It stops at a breakpoint, a variable is read, a step is made, and it ends."
  (let ((file (test-program "def double(number):
    twice = number * 2
    return twice
print double(21)
")))
    (test-set-breakpoint file 2)
    (dap-debug (list :type "sorrel"))
    (should (= 2 (test-until #'test-stopped-line)))
    (should (equal file (file-truename (buffer-file-name))))
    (should (equal "21" (test-variable "number")))
    (should (equal "'21!'" (test-evaluate "str(number) + '!'")))
    (dap-next (dap--cur-session))
    (test-until (lambda () (equal 3 (test-stopped-line))))
    (should (equal "42" (test-variable "twice")))
    (dap-continue (dap--cur-session) (dap--debug-session-thread-id (dap--cur-session)))
    (test-until (lambda () (not (dap--session-running (dap--cur-session)))))
    (should (string-match-p "42" (test-output)))
    (dap-breakpoint-delete-all)))

(ert-deftest a-forked-process-shares-the-session ()
  "It stops at a breakpoint in a thread of its own, and goes on; its parent runs on meanwhile."
  (let ((file (test-program "import os
def work(number):
    return number * 2
child = os.fork()
if not child:
    os._exit(work(21))
print 'parent'
print os.waitpid(child, 0)[1] >> 8
")))
    (test-set-breakpoint file 3)
    (dap-debug (list :type "sorrel"))
    (should (= 3 (test-until #'test-stopped-line)))
    (should (string-match-p "\\`MainThread \\[[0-9]+\\]\\'" (test-thread-name)))
    (should (equal "21" (test-variable "number")))
    (test-until (lambda () (string-match-p "parent" (test-output))))
    (dap-continue (dap--cur-session) (dap--debug-session-thread-id (dap--cur-session)))
    (test-until (lambda () (not (dap--session-running (dap--cur-session)))))
    (should (string-match-p "42" (test-output)))
    (dap-breakpoint-delete-all)))

(ert-deftest a-program-that-listens-is-attached-to ()
  "It stops at a breakpoint, and runs on when the session has ended."
  (let* ((file (test-program "import time
turns = 0
while turns >= 0:
    turns += 1
    time.sleep(0.01)
"))
         (buffer (generate-new-buffer "service"))
         (service (make-process :name "service" :buffer buffer :noquery t :connection-type 'pipe
                                :command (list dap-sorrel-morvik "run" "--listen" "0" file))))
    (unwind-protect
        (let ((port (test-until
                     (lambda ()
                       (with-current-buffer buffer
                         (goto-char (point-min))
                         (and (re-search-forward
                                "listening on 127\\.0\\.0\\.1:\\([0-9]+\\)\n" nil t)
                              (string-to-number (match-string 1))))))))
          (test-set-breakpoint file 4)
          (dap-debug (list :type "sorrel" :request "attach" :port port))
          (should (= 4 (test-until #'test-stopped-line)))
          (should (string-match-p "\\`[0-9]+\\'" (test-evaluate "turns")))
          (dap-disconnect (dap--cur-session))
          (test-until (lambda () (not (dap--session-running (dap--cur-session)))))
          (should (process-live-p service))
          (dap-breakpoint-delete-all))
      (delete-process service))))

;;; test-dap-sorrel.el ends here
