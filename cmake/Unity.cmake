# With NETRO_UNITY each room of the library is one translation unit, which takes a third of the time;
# the presets with sanitizers and those for Windows, which nobody edits in, do so. Files that give a
# name of their own to something that another file of the room calls the same stand aside.
set(netro_aside
  support: HttpDate QuotedPrintable Utf8
  platform: IcmpPacket
  platform/windows: Conversion Sockets
  platform/linux: EchoLine IcmpSocket PortProbes Program
  socket: TlsStream
  dns: LookupQuery NameQuestion RecordLayouts
  mail: HeaderBlock MailOutcome MimeComposer SendMailDelivery SendMailFiles SmtpData SmtpDialogue
    SmtpExtensions SmtpLogin SmtpOpening SmtpReply SmtpTransactionData SmtpTranscript SMTPSettings
    SpoolRun SpoolSchedule
  web: HttpAnswer HttpAnswerChunks HttpQueryConnect HttpQueryNext HttpQuerySettings MultipartBody SetCookie
    WhoIsReferral WhoIsTable
  diag: TraceRoute WatchPrograms Watchpost WatchpostState WatchTarget WatchWeb)

function(netro_unite target)
  if(NETRO_UNITY)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    target_compile_options(${target} PRIVATE -Wno-shadow
      $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)  # these are about names between files
  endif()
endfunction()

if(NETRO_UNITY)
  set(aside)
  foreach(word ${netro_aside})
    if(word MATCHES "(.*):$")
      set(room ${PROJECT_SOURCE_DIR}/${CMAKE_MATCH_1})
    else()
      list(APPEND aside ${room}/${word}.cpp)
    endif()
  endforeach()
  foreach(source ${netro_sources})
    if(NOT source IN_LIST aside)
      cmake_path(GET source PARENT_PATH room)
      # A unit's name becomes a symbol: it does not tell where the sources lay.
      cmake_path(RELATIVE_PATH room BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
      string(MAKE_C_IDENTIFIER ${room} room)
      set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${room})
    endif()
  endforeach()
endif()
