# cmake --install: the program, its man page, the completion of its options, and the docs.

include(GNUInstallDirs)

install(TARGETS velmo DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES packaging/velmo.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES packaging/completion.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME velmo)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(FILES docs/survey.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/velmo)

if(VELMO_SURVEY)
  install(FILES docs/velmo-alerts.yml docs/velmo-dashboard.json
          DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
  install(FILES packaging/slurm/velmo-survey.sbatch DESTINATION ${CMAKE_INSTALL_DATADIR}/velmo/slurm)
  # Installed, not enabled.
  install(FILES packaging/systemd/velmo-survey.service packaging/systemd/velmo-survey.timer
          DESTINATION lib/systemd/system)
endif()
