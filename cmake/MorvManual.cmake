# morv_add_manual(<page> <section>): makes the manual page <page>.<section>
# at build time with scdoc from <page>.<section>.scd beside the calling
# CMakeLists.txt, as the target <page>-manual, and installs it in
# share/man/man<section>.
find_program(MORV_SCDOC scdoc REQUIRED)

function(morv_add_manual page section)
  set(manual ${CMAKE_CURRENT_BINARY_DIR}/${page}.${section})
  set(manual_source ${CMAKE_CURRENT_SOURCE_DIR}/${page}.${section}.scd)
  add_custom_command(OUTPUT ${manual}
    COMMAND sh -c "\"$0\" < \"$1\" > \"$2\"" ${MORV_SCDOC} ${manual_source} ${manual}
    DEPENDS ${manual_source}
    COMMENT "Making the manual page ${page}.${section}"
    VERBATIM)
  add_custom_target(${page}-manual ALL DEPENDS ${manual})
  install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endfunction()
