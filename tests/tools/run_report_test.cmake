# lumivex eval's report.html in headless Chromium: the page's own script counts the
# panoramas and charts that rendered; all of them must have.
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${LUMIVEX} eval ${PHOTO} --sizes 320x240 --directions right,up
                        --cases hand-held --report-dir ${WORK} --json
                RESULT_VARIABLE status OUTPUT_QUIET ERROR_QUIET)
if(NOT status EQUAL 0 OR NOT EXISTS ${WORK}/report.html)
  message(FATAL_ERROR "lumivex eval failed (${status})")
endif()
execute_process(COMMAND ${CHROMIUM} --headless --disable-gpu --no-sandbox
                        --user-data-dir=${WORK}/profile --virtual-time-budget=10000
                        --dump-dom file://${WORK}/report.html
                OUTPUT_VARIABLE dom ERROR_QUIET TIMEOUT 120 RESULT_VARIABLE status)
string(REGEX MATCH "<body[^>]*>" body "${dom}")
message("${body}")
foreach(kind images charts)
  string(REGEX MATCH "data-${kind}=\"([0-9]+)\"" _ "${body}")
  set(total ${CMAKE_MATCH_1})
  string(REGEX MATCH "data-${kind}-shown=\"([0-9]+)\"" _ "${body}")
  set(shown ${CMAKE_MATCH_1})
  # Two sweeps under two profiles: four of each.
  if(NOT total EQUAL 4 OR NOT shown EQUAL total)
    message(FATAL_ERROR "${kind}: ${shown} of ${total} rendered (status ${status})")
  endif()
endforeach()
