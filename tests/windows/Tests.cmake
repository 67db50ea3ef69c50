# Which of the tests run on Windows; docs/windows.md tells why the others do not.

# It cuts its file's room, makes pipes and copies of itself.
list(FILTER test_sources EXCLUDE REGEX "/LogfileTest[.]cpp$")

set(netro_skipped
  # wine: a reset shows as an orderly close.
  TestkitWhoIs.AnswersALineAndKeepsIt
  WhoIs.AResetKeepsWhatCame
  QueryDnsTcp.WhatAStreamResultsIn
  QueryDnsOptions.TruncatedRepliesAreFollowedWhenAskedFor
  QueryTimeTcp.AResetIsItsNumber
  ZoneTransfer.EarlyEndKeepsWhatHasCome
  # wine: a port that is taken on one address is taken on all, or can be had twice.
  NetBiosRemote.*
  EndOfNetBios.*
  QueryTimeSntp.*
  TimeSurvey.*
  QueryDns.ForeignDatagramsAreIgnored
  # Not understood yet: under wine, which has no echoes of IPv6 either, some of those that are sent by the
  # hundred, or while the test's clock is turned, are taken for silent. The command's tour asks 200 hosts.
  Echoes.*
  EchoExceptions.*
  ServerDiscovery.*
  # wine: no ISO-2022-JP, no links.
  CodePage.ConvertsBothWays
  Spool.BadFilesAreSetAsideAndCutRecordsForgotten
  # Files have no mode.
  Spool.ItsMessageArrivesAsItWouldHaveAndIsGone
  MessageFiles.AllWaysGiveTheSameBytes
  SavedLookupCache.RestoresWhatHasNotExpired
  CookieFile.ComesBackAsWritten
  # Folders hold no pipes, a file that is open is not replaced, and one in a folder's place is no other error
  # than none.
  SavedLookupCache.FilesThatCannotBeUsed
  HttpAnswerBody.APipeIsNotReplaced
  FindDns.IgnoresWhatIsNoFileOrTooBig
  MessageFiles.ThatChangeWhileTheyAreSent
  Spool.TroubleWithTheFolderIsNamed
  # The time zone, the character set and the folder of settings are not those of TZ, LC_ALL and
  # XDG_CONFIG_HOME; the test's own name of a file is not UTF-8 there; interfaces go by their numbers.
  TimeRequest.CarriesTheTimeOfTheZone
  DateText.FindsTheZoneOfALocalDate
  SmtpSilence.AWaitThatPassesMidnightEndsTenMinutesLater
  Composing.HasTheseLines
  Composing.DatesOutsideTheCalendarAreTheNewOne
  Composing.FilesAreNamedAndTyped
  CodePage.KnowsTheSetOfTheLocale
  SavedLookupCache.WithoutNameTheSettingsFileServes
  ResolverConfigText.IsReadAsTheSystemReadsIt
  # Nobody can ask how far the peer has read.
  Socks.AReplyIsAwaitedAsFarAsItsOwnLength
  # They start programs of Linux.
  WatchReporting.ManyProgramsRunAFewAtATime
  WatchReporting.AProgramThatDoesNotEndIsEnded
  # Not understood yet: now and then it takes 20 s.
  WatchReporting.AWebhooksAnswerNeedNotEnd)

# A few processes for all of them: under wine each begins with a second's work.
function(netro_add_windows_tests)
  list(JOIN netro_skipped ":" skipped)
  string(APPEND skipped ":${costly}")  # much data, which takes minutes under wine
  foreach(shard RANGE 7)
    add_test(NAME shard.${shard} COMMAND netro_tests --gtest_brief=1 --gtest_filter=-${skipped})
    set_tests_properties(shard.${shard} PROPERTIES TIMEOUT 600
      ENVIRONMENT "GTEST_TOTAL_SHARDS=8;GTEST_SHARD_INDEX=${shard}")
  endforeach()
endfunction()

# The command as a user runs it, by the scripts that ask for nothing but pipes and servers on loopback;
# skipped-commands says what of them is left out. Those of echoes and hops make namespaces, that of time
# waits for refusals of datagrams, which wine does not tell.
function(netro_add_windows_command_tests)
  if(NOT TARGET netro_tool)
    return()
  endif()
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(scripts ${PROJECT_SOURCE_DIR}/tests/cli)
  foreach(name command dns whois mail)
    add_test(NAME command.${name} COMMAND ${Python3_EXECUTABLE} -B ${scripts}/${name}_test.py
      $<TARGET_FILE:netro_tool>)
    set_tests_properties(command.${name} PROPERTIES TIMEOUT 300
      ENVIRONMENT "NETRO_LAUNCHER=${CMAKE_CROSSCOMPILING_EMULATOR};NETRO_SKIPPED=${scripts}/../windows/skipped-commands")
  endforeach()
endfunction()
