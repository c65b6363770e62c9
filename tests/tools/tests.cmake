add_test(NAME tools.CliExplainsBadInput
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_errors_test.sh $<TARGET_FILE:ovd>)
add_test(NAME tools.PsfIsCentredUnitVolume
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_psf_test.sh $<TARGET_FILE:ovd>)
add_test(NAME tools.RestoreDetectAndCancelLeaveNothingBehind
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_restore_test.sh $<TARGET_FILE:ovd>)
add_test(NAME tools.OutputsStayUntouchedUntilSuccess
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_output_safety_test.sh $<TARGET_FILE:ovd>)
add_test(NAME tools.HyperstackChannelsSixteenBitsAndLog
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_channels_output_test.sh $<TARGET_FILE:ovd>)
add_test(NAME tools.PsfSpacingIsReadInItsUnit
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_psf_units_test.sh $<TARGET_FILE:ovd>)
