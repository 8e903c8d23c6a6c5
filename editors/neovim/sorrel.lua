-- Registers the debugger "sorrel" with nvim-dap. See README.md beside this file.

local M = {}

local folder = vim.fn.fnamemodify(vim.fn.resolve(debug.getinfo(1, 'S').source:sub(2)), ':p:h')

local function ask_for_port()
  return tonumber(vim.fn.input('Port of the program: ', '5679'))
end

-- options.morvik: the command of a checkout; without it, of the one this file is in.
function M.setup(options)
  local dap = require('dap')
  dap.adapters.sorrel = {
    type = 'executable',
    command = (options or {}).morvik or vim.fn.fnamemodify(folder .. '/../../morvik', ':p'),
    args = { 'dap' },
  }
  dap.configurations.python = dap.configurations.python or {}
  vim.list_extend(dap.configurations.python, {
    {
      type = 'sorrel',
      request = 'launch',
      name = 'Python 2: this file',
      program = '${file}',
      cwd = '${workspaceFolder}',
    },
    {
      type = 'sorrel',
      request = 'launch',
      name = 'Python 2: this file, in a terminal',
      program = '${file}',
      cwd = '${workspaceFolder}',
      console = 'integratedTerminal',
    },
    {
      type = 'sorrel',
      request = 'attach',
      name = 'Python 2: a program that listens',
      port = ask_for_port,
    },
  })
end

return M
