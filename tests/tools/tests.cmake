add_test(NAME tools.CliExplainsBadInput
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_errors_test.sh $<TARGET_FILE:ovd>)
