;;; dap-sorrel.el --- Debug Python 2 programs with sorrel -*- lexical-binding: t; -*-

;; Package-Requires: ((emacs "27.1") (dap-mode "0.7"))
;; SPDX-License-Identifier: MIT

;;; Commentary:

;; Registers the debugger "sorrel" with dap-mode, and templates for `dap-debug'.  See README.md
;; beside this file.

;;; Code:

(require 'dap-mode)
;; What it keeps of exceptions is asked for without a screen, too.
(require 'dap-ui)

(defgroup dap-sorrel nil
  "Debugging Python 2 programs with sorrel."
  :group 'dap-mode)

(defcustom dap-sorrel-morvik
  (expand-file-name "../../morvik" (file-name-directory
                                    (file-truename (or load-file-name buffer-file-name))))
  "The command `morvik' of a checkout."
  :type 'file)

(defun dap-sorrel--complete (configuration)
  "Fill in what CONFIGURATION leaves open."
  (dap--put-if-absent configuration :dap-server-path (list dap-sorrel-morvik "dap"))
  (dap--put-if-absent configuration :request "launch")
  (dap--put-if-absent configuration :name "sorrel")
  (if (string= (plist-get configuration :request) "attach")
      (unless (or (plist-get configuration :socket) (plist-get configuration :connect))
        (dap--put-if-absent configuration :port (read-number "Port of the program: " 5679)))
    (unless (plist-get configuration :module)
      (dap--put-if-absent configuration :program (buffer-file-name)))
    (dap--put-if-absent configuration :cwd (expand-file-name default-directory)))
  configuration)

(dap-register-debug-provider "sorrel" #'dap-sorrel--complete)

(dap-register-debug-template "sorrel: this file"
                             (list :type "sorrel" :request "launch" :name "sorrel: this file"))
(dap-register-debug-template "sorrel: a program that listens"
                             (list :type "sorrel" :request "attach"
                                   :name "sorrel: a program that listens"))

(provide 'dap-sorrel)
;;; dap-sorrel.el ends here
