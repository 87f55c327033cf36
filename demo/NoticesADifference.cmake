# SPDX-License-Identifier: Apache-2.0
# Runs STORY with one expectation made wrong: it has to end with status 1, having shown both lists of that step.
execute_process(COMMAND ${STORY} --break RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE complaints)
if(NOT status EQUAL 1)
  message(FATAL_ERROR "status ${status} instead of 1\n${output}${complaints}")
endif()
if(NOT output MATCHES "Expected:.*> +2 +Bluetooth +Galaxy 3 .*Actual:.*> +2 +Bluetooth +Galaxy 2 ")
  message(FATAL_ERROR "the difference is not shown\n${output}${complaints}")
endif()
