# Runs the demonstration host (through EMULATOR when one is given, e.g. wine) and checks that its
# transcript holds the key lines of each stop of the tour, in order.
#   cmake -DDEMO=<krdemo> [-DEMULATOR=wine] -P check_transcript.cmake
execute_process(COMMAND ${EMULATOR} ${DEMO}
        OUTPUT_VARIABLE transcript
        ERROR_VARIABLE errors
        RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "the demonstration host ended with ${result}:\n${transcript}\n${errors}")
endif()
set(expected
        "krcore 1.0.0 started"
        "wrote a 128 x 128 colour wheel (saved): "
        "== a plug-in module =="
        "KR_dllLoad answered KR_RET_TRUE"
        "a second KR_dllLoad answered KR_RET_TRUE: the module is loaded once and counted twice"
        "the module registered its classes: KR_RET_TRUE"
        "Public Service Group List:"
        "Function name:       Scale"
        "Input argument map:  Arg 0: Type: Double"
        "Output process port map: Port 0"
        "Factor (Double) = 2.000000"
        "Value (Double) = 21.000000"
        "Rounding (Unicode string) = nearest"
        "KR_classFactoryCreateObj made a \"Scaler\" (class 3F9A2C61-7B4E-4D0A-A5C8-1E6F0B9D2C47)"
        "KR_classFactoryObjExecute answered KR_RET_TRUE"
        "Result (Double) = 26.000000"
        "KR_classFactoryDelObj answered KR_RET_TRUE"
        "Not a public class GUID: <00000000-0000-0000-0000-000000000000>"
        "Scaler objects alive: 0"
        "runs so far: 1"
        "<factor> = 1.25"
        "\"undo keeps history\"  (3 commands, 3 to undo, modified)"
        "\"undo\"  (3 commands, 1 to undo, saved)"
        "\"undo keeps everything\"  (3 commands, 3 to undo, modified)"
        "KR_dllUnload answered KR_RET_TRUE: the module is gone"
        "krcore closed")
set(rest "${transcript}")
foreach(line IN LISTS expected)
    string(FIND "${rest}" "${line}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "missing, or out of order: \"${line}\"\n--- transcript ---\n${transcript}")
    endif()
    string(LENGTH "${line}" length)
    math(EXPR at "${at} + ${length}")
    string(SUBSTRING "${rest}" ${at} -1 rest)
endforeach()
list(LENGTH expected count)
message(STATUS "the transcript holds all ${count} key lines")
