# Warnings as errors on every compiler we ship with, and the static MinGW runtime for Windows
# artefacts so that they need only system DLLs beside them.
function(krcore_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()

function(krcore_static_runtime target)
    if(MINGW)
        target_link_options(${target} PRIVATE -static-libgcc -static-libstdc++
                -Wl,-Bstatic,--whole-archive -lwinpthread -Wl,--no-whole-archive,-Bdynamic)
    endif()
endfunction()
