"""What a client may expect of this server."""

# The ways of stopping at exceptions.
RAISED, UNCAUGHT, USER_UNHANDLED, PRINTED = 'raised', 'uncaught', 'userUnhandled', 'printed'
# What is said of a breakpoint that has no code yet.
WAITING = 'the module has not been loaded'


def announced():
    return {
        'supportsConfigurationDoneRequest': True,
        'supportsFunctionBreakpoints': True,
        'supportsConditionalBreakpoints': True,
        'supportsHitConditionalBreakpoints': True,
        'supportsLogPoints': True,
        'supportsBreakpointLocationsRequest': True,
        'supportsEvaluateForHovers': True,
        'supportsClipboardContext': True,
        'supportsValueFormattingOptions': True,
        'supportsSetVariable': True,
        'supportsSetExpression': True,
        'supportsGotoTargetsRequest': True,
        'supportsStepInTargetsRequest': True,
        'supportsCompletionsRequest': True,
        'completionTriggerCharacters': ['.'],
        'supportsModulesRequest': True,
        'supportsExceptionInfoRequest': True,
        'supportsExceptionOptions': True,
        'supportsExceptionFilterOptions': True,
        'supportsDelayedStackTraceLoading': True,
        'supportsLoadedSourcesRequest': True,
        'supportsSingleThreadExecutionRequests': True,
        'supportsTerminateRequest': True,
        'supportTerminateDebuggee': True,
        'supportsCancelRequest': True,
        'exceptionBreakpointFilters': [
            {'filter': RAISED, 'label': 'Raised Exceptions', 'default': False,
             'description': 'Stop where an exception is raised, even if it is handled.',
             'supportsCondition': True, 'conditionDescription': _TYPES},
            {'filter': UNCAUGHT, 'label': 'Uncaught Exceptions', 'default': True,
             'description': 'Stop where an exception is raised that nothing will handle.',
             'supportsCondition': True, 'conditionDescription': _TYPES_NOT},
            {'filter': USER_UNHANDLED, 'label': 'User Uncaught Exceptions', 'default': False,
             'description': 'Stop where an exception is raised that will leave your own code '
                            'for that of a library.',
             'supportsCondition': True, 'conditionDescription': _TYPES_NOT},
            {'filter': PRINTED, 'label': 'Exceptions the Program Prints', 'default': False,
             'description': 'Stop where an exception is raised that the program will print, or '
                            'else where it does.',
             'supportsCondition': True, 'conditionDescription': _TYPES_NOT}]}


_TYPES = 'Types to stop at, or with a - before each not to stop at: ValueError, -KeyError'
_TYPES_NOT = 'Types not to stop at, with a - before each: -ValueError, -KeyError'
