# Gives the staged files the layout that Debian's policy asks for. CPack runs it after it has installed the component and
# before it makes the package.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/tools/usr)
if(NOT IS_DIRECTORY ${root}/share)
  message(FATAL_ERROR "${root} holds no files of the component tools")
endif()

# compress(<file>...): by gzip, without a time or a name, so that the same input gives the same package.
function(compress)
  execute_process(COMMAND gzip -9nf ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(doc ${root}/share/doc/rovu-tools)
file(COPY ${CPACK_ROVU_DEBIAN_FILES}/copyright DESTINATION ${doc})
file(COPY ${CPACK_ROVU_CHANGELOG} ${CPACK_ROVU_CHANGES} DESTINATION ${doc})
file(MAKE_DIRECTORY ${root}/share/lintian/overrides)
file(COPY_FILE ${CPACK_ROVU_DEBIAN_FILES}/lintian-overrides ${root}/share/lintian/overrides/rovu-tools)
file(CREATE_LINK ../../rovu/docs ${doc}/docs SYMBOLIC)
file(CREATE_LINK ../../rovu/examples ${doc}/examples SYMBOLIC)
file(GLOB pages ${root}/share/man/man*/*)
compress(${pages} ${doc}/changelog)

file(RENAME ${root}/share/zsh/site-functions ${root}/share/zsh/vendor-completions)

# The umask of whoever built or checked out the files must not decide who can read them.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/tools COMMAND_ERROR_IS_FATAL ANY)
