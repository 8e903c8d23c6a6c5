"""What a client may expect of this server."""

# The ways of stopping at exceptions.
RAISED, UNCAUGHT, PRINTED = 'raised', 'uncaught', 'printed'


def announced():
    return {
        'supportsConfigurationDoneRequest': True,
        'supportsFunctionBreakpoints': True,
        'supportsConditionalBreakpoints': True,
        'supportsHitConditionalBreakpoints': True,
        'supportsLogPoints': True,
        'supportsEvaluateForHovers': True,
        'supportsClipboardContext': True,
        'supportsSetVariable': True,
        'supportsSetExpression': True,
        'supportsGotoTargetsRequest': True,
        'supportsCompletionsRequest': True,
        'completionTriggerCharacters': ['.'],
        'supportsModulesRequest': True,
        'supportsExceptionInfoRequest': True,
        'supportsExceptionOptions': True,
        'supportsExceptionFilterOptions': True,
        'supportsDelayedStackTraceLoading': True,
        'supportsLoadedSourcesRequest': True,
        'supportsTerminateRequest': True,
        'supportTerminateDebuggee': True,
        'supportsCancelRequest': True,
        'exceptionBreakpointFilters': [
            {'filter': RAISED, 'label': 'Raised Exceptions', 'default': False,
             'description': 'Stop where an exception is raised, even if it is handled.',
             'supportsCondition': True, 'conditionDescription': _CONDITION},
            {'filter': UNCAUGHT, 'label': 'Uncaught Exceptions', 'default': True,
             'description': 'Stop where an exception is raised that nothing will handle.',
             'supportsCondition': True, 'conditionDescription': _CONDITION},
            {'filter': PRINTED, 'label': 'Exceptions the Program Prints', 'default': False,
             'description': 'Stop where an exception is raised that the program will print.'}]}


_CONDITION = 'Types to stop at, or with a - before each not to stop at: ValueError, -KeyError'
