# Runs the JVM capture test: a simulated sweep from the lumivex program, then java with
# the library on java.library.path; checks the program's verdict and the binding's log.
execute_process(COMMAND ${LUMIVEX} simulate ${PHOTO} -o ${WORK}/sweep.y4m --model slide --size 320x240 -y
                RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "lumivex simulate failed")
endif()
# A sanitizer build needs its runtimes loaded first; the JVM's own signal handling and
# its never-freed start-up allocations are not the library's findings.
set(launcher "")
if(PRELOAD)
  set(launcher ${CMAKE_COMMAND} -E env LD_PRELOAD=${PRELOAD}
      "ASAN_OPTIONS=detect_leaks=0:handle_segv=0:allow_user_segv_handler=1:abort_on_error=1"
      "UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1")
endif()
execute_process(COMMAND ${launcher} ${JAVA} -Xcheck:jni -Djava.library.path=${LIBDIR} -cp ${CLASSES}
                        RvkCaptureTest ${WORK}/sweep.y4m
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message("${out}")
if(NOT rc EQUAL 0)
  message("${err}")
  message(FATAL_ERROR "the JVM test failed")
endif()
set(log "${out}${err}")
foreach(line "JNI_OnLoad <---" "JNI_OnLoad --->" "JNI_InitRVK <----" "JNI_InitRVK ---->"
             "JNI_ProccessRVK <----" "JNI_ProccessRVK ---->" "JNI_StopProcessRVK <----"
             "JNI_StopProcessRVK ---->" "JNI_UnInitRVK <----" "JNI_UnInitRVK ---->"
             "Notify VIDEORVK_MSG_CAPTURE_SUCCESS" "Notify VIDEORVK unknown MSG: 0x77"
             "Register_Utils_Functions ---->")
  string(FIND "${log}" "${line}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the log lacks \"${line}\"")
  endif()
endforeach()
# maxNumber 30, 0 and 31 all size the buffer for 30 frames.
string(REGEX MATCHALL "m_dwRVKMaxNumber=30, mPhotoNumberforSize=34" sized "${log}")
list(LENGTH sized n)
if(n LESS 3)
  message(FATAL_ERROR "maxNumber was not clamped to 30 (${n} inits sized for 30)")
endif()
