# What `cmake --install` puts in place, as two components: korvid, and korvid-unit where it is built.

include(GNUInstallDirs)

# korvid_manual(COMPONENT PAGE.SECTION...): the manual pages docs/man/PAGE.SECTION.scd.
function(korvid_manual component)
    foreach(page ${ARGN})
        set(source ${CMAKE_SOURCE_DIR}/docs/man/${page}.scd)
        set(made ${CMAKE_BINARY_DIR}/man/${page})
        add_custom_command(OUTPUT ${made}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
            COMMAND sh -c "exec \"$0\" <\"$1\" >\"$2\"" ${KORVID_SCDOC} ${source} ${made}
            DEPENDS ${source}
            VERBATIM)
        add_custom_target(manual_${page} ALL DEPENDS ${made})
        string(REGEX REPLACE ".*\\." "" section ${page})
        install(FILES ${made} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
    endforeach()
endfunction()

# korvid_program(COMPONENT NAME): a program, its manual page and its completion.
function(korvid_program component name)
    install(TARGETS ${name} RUNTIME COMPONENT ${component})
    korvid_manual(${component} ${name}.1)
    set(completions ${CMAKE_SOURCE_DIR}/share/completions)
    install(PROGRAMS ${completions}/complete
        DESTINATION ${CMAKE_INSTALL_DATADIR}/${name} COMPONENT ${component})
    install(FILES ${completions}/korvid.bash RENAME ${name}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
    install(FILES ${completions}/korvid.zsh RENAME _${name}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT ${component})
    install(FILES ${completions}/korvid.fish RENAME ${name}.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT ${component})
endfunction()

korvid_program(korvid korvid)
korvid_program(korvid korvid-json)
korvid_program(korvid korvid-monitor)
if(TARGET korvid-restore)
    korvid_program(korvid korvid-restore)
endif()
korvid_manual(korvid lapi.conf.5)
install(FILES share/lapi.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT korvid)
install(DIRECTORY share/broker share/fleet
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT korvid)
install(FILES docs/compatibility.md docs/fleet.md docs/fleet.svg docs/pipelines.md docs/protocol.md
    docs/security.md docs/troubleshooting.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT korvid)
install(FILES src/platform/system_parameter_entry.proto src/protocol/sysparam.proto
    DESTINATION ${CMAKE_INSTALL_DATADIR}/korvid COMPONENT korvid)

if(TARGET korvid-unit)
    korvid_program(korvid-unit korvid-unit)
    install(FILES share/demo-unit.txt
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/korvid-unit/examples COMPONENT korvid-unit)
endif()
