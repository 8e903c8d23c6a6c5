-- What editors/neovim/sorrel.lua registers, with a client that only keeps it.

local root = vim.fn.fnamemodify(debug.getinfo(1, 'S').source:sub(2), ':p:h:h:h:h')

local function check(condition, what)
  if not condition then
    print('sorrel.lua: ' .. what .. '\n')
    vim.cmd('cquit')
  end
end

local function check_equal(actual, expected, what)
  check(vim.deep_equal(actual, expected), what .. ': ' .. vim.inspect(actual))
end

-- Loads the file by this path into a client that knows one configuration already.
local function registered(path, options)
  local dap = { adapters = {}, configurations = { python = { { name = 'known' } } } }
  package.loaded.dap = dap
  dofile(path).setup(options)
  return dap
end

local file = root .. '/editors/neovim/sorrel.lua'
local dap = registered(file)
check_equal(dap.adapters.sorrel,
  { type = 'executable', command = root .. '/morvik', args = { 'dap' } }, 'the adapter')
check(vim.fn.executable(dap.adapters.sorrel.command) == 1, 'the command cannot be run')

local folder = vim.fn.tempname()
vim.fn.mkdir(folder)
check(vim.loop.fs_symlink(file, folder .. '/linked.lua'), 'no link')
check_equal(registered(folder .. '/linked.lua').adapters.sorrel.command, root .. '/morvik',
  'the command of a linked file')
check_equal(registered(file, { morvik = '/elsewhere/morvik' }).adapters.sorrel.command,
  '/elsewhere/morvik', 'the command that is named')

local known, file_launched, in_terminal, attached = unpack(dap.configurations.python)
check_equal(known, { name = 'known' }, 'what was there before')
for _, configuration in ipairs({ file_launched, in_terminal, attached }) do
  check_equal(configuration.type, 'sorrel', 'the type')
  check(configuration.name ~= '', 'no name')
end
check_equal({ file_launched.request, file_launched.program }, { 'launch', '${file}' }, 'launching')
check_equal({ in_terminal.request, in_terminal.console }, { 'launch', 'integratedTerminal' },
  'launching in a terminal')
vim.fn.input = function(_, default)
  return default
end
check_equal({ attached.request, attached.port() }, { 'attach', 5679 }, 'attaching')

-- The adapter is what it should be.
local received = ''
local job = vim.fn.jobstart({ dap.adapters.sorrel.command, unpack(dap.adapters.sorrel.args) }, {
  on_stdout = function(_, data)
    received = received .. table.concat(data, '\n')
  end,
})
local request = vim.fn.json_encode(
  { seq = 1, type = 'request', command = 'initialize', arguments = { adapterID = 'nvim-dap' } })
vim.fn.chansend(job, string.format('Content-Length: %d\r\n\r\n%s', #request, request))
check(vim.wait(60000, function()
  return received:find('supportsConfigurationDoneRequest', 1, true) ~= nil
end, 10), 'the adapter does not answer')
vim.fn.jobstop(job)
vim.cmd('quitall')
