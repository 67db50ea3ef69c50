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
  HttpAnswerAndClose.IsTakenWhenItIsARefusal
  Ways/BrokenQueue.IsDroppedAndToldOfOnce/0
  Ways/BrokenQueue.IsDroppedAndToldOfOnce/2
  # wine: what is bound to another address of loopback sends from 127.0.0.1, and hears what that one is sent.
  NetBiosRemote.*
  EndOfNetBios.*
  QueryTimeSntp.*
  QueryTime.OnlyTheServerAskedIsHeard
  TimeSurvey.*
  QueryDns.ForeignDatagramsAreIgnored
  # wine: that nobody listens at a port of UDP is not told.
  ServerLookup.APortThatRefusesEndsTheWaitAtOnce
  # wine: no echoes of IPv6.
  HostHelpers.ReachabilityAsksTheNetwork
  Watchpost.HostsOfIPv6
  IcmpEcho.PacketsOfEverySize
  IcmpEcho.TheFamilyIsTheCallers
  Echoes.RefusalsToSendAreRepliesToo
  ServerDiscovery.LeavesOutTheSilent
  # wine: an echo takes a millisecond, so the last of thousands are late; and no answer is there when the
  # test's clock is turned just behind the question.
  Echoes.AnyNumberAtOnce
  Echoes.SequenceNumbersAreTheLimit
  Echoes.WhatIsAnsweredTakesNoRoom
  Echoes.WhatCameWhileTheHostWasBusyIsNoSilence
  # Answers come in any order.
  Echoes.CancelledRequestsHaveNoReply
  # wine: what is sent to 0.0.0.0 is refused instead of kept silent; and an answer is not there at once.
  Echoes.SilenceEndsInTheOrderOfTheTimes
  Echoes.TheHandlerMayWaitForTheOthers
  Echoes.MayBeDeletedByTheHandlerAndWithRequestsInFlight
  IcmpEcho.ASecondCallIsRefusedAndChangesNothing
  IcmpEcho.EveryWaitIsEnded
  IcmpEcho.LimitsOfTheNumberOfHops
  IcmpEcho.TheHandlerMayCallAndChangeTheSink
  ServerDiscovery.KeepsAllWhenNobodyAnswersForHalfASecond
  IcmpEcho.CallsInsideCallsKeepTheirReplies
  IcmpEcho.DeletedDuringACall
  IcmpEcho.SilenceEndsWithItsTime
  IcmpEcho.SilentHopsCount
  IcmpEcho.TheHandlerCancels
  # There are no sockets for them, and wine has handles of its own.
  Echoes.AThousandTargetsThroughOneDescriptor
  Echoes.AllObjectsOfAThreadShareOneSocket
  # wine: no ISO-2022-JP, no links.
  CodePage.ConvertsBothWays
  Spool.BadFilesAreSetAsideAndCutRecordsForgotten
  WholeFile.LinksAreReadAndReplaced
  HttpFile.LinksAreNotFollowed
  # Folders hold no pipes, a file that is open is not replaced, and one in a folder's place is no other error
  # than none.
  SavedLookupCache.FilesThatCannotBeUsed
  HttpAnswerBody.APipeIsNotReplaced
  FindDns.IgnoresWhatIsNoFileOrTooBig
  MessageFiles.ThatChangeWhileTheyAreSent
  Spool.TroubleWithTheFolderIsNamed
  WholeFile.OtherKindsAreRefusedAtOnce
  WholeFile.ReadersNeverSeeHalfOfIt
  WholeFile.FoldersAreMadeWithThoseAbove
  # The time zone, the character set and the folder of settings are not those of TZ, LC_ALL and
  # XDG_CONFIG_HOME, the servers not those of resolv.conf; the test's own name of a file is not UTF-8 there;
  # interfaces go by their numbers.
  TimeRequest.CarriesTheTimeOfTheZone
  DateText.FindsTheZoneOfALocalDate
  SmtpSilence.AWaitThatPassesMidnightEndsTenMinutesLater
  Composing.HasTheseLines
  Composing.DatesOutsideTheCalendarAreTheNewOne
  Composing.FilesAreNamedAndTyped
  CodePage.KnowsTheSetOfTheLocale
  SavedLookupCache.WithoutNameTheSettingsFileServes
  ResolverConfigText.IsReadAsTheSystemReadsIt
  Address.IsReadAndWritten
  Address.HasAPortBehindIt
  ServerLookup.TheSystemsRulesHoldForItsServers
  WholeFile.SettingsLieWhereTheEnvironmentSays
  # Loops have no descriptor, processes no copies and no limits, datagrams no time of arrival.
  MessageLoop.PumpRunsWhatIsQueuedOnEntryAndLeavesTheRest
  MessageLoop.DescriptorBecomesReadableForATimer
  MessageLoop.ChildOfAForkHasItsOwn
  Task.BeginsWithTheNextPumpAndMakesTheDescriptorReadable
  Task.DoesNotGoOnInTheChildOfAFork
  Task.ExitInsideOneEndsTheOthers
  TaskDeathTest.*
  TaskCalls.FiveThousandWithDescriptorsForAThousand
  HostLookup.WhatTheProgramLacksIsNoWordAboutTheName
  HttpFile.GrowsOverTheSizeAllowed
  Watchpost.WhatThisProgramLacksIsNoFailureOfAHost
  WholeFile.AFailedReplacementChangesNothing
  QueryTime.TheRoundTripEndsWhenTheReplyComes
  # Nobody can ask how far the peer has read, so two pieces of an answer may come as one.
  HttpStatus.ComesForEveryBlockAndAllowsQueriesOfOthers
  HttpStatus.MayDeleteTheObject
  Socks.AReplyIsAwaitedAsFarAsItsOwnLength
  # They start programs of Linux.
  Watchpost.AHostThatGoesDownAndComesBackIsToldOnceEach
  WatchReporting.ManyProgramsRunAFewAtATime
  WatchReporting.AProgramThatDoesNotEndIsEnded)

# A few processes for all of them: under wine each begins with a second's work.
function(netro_add_windows_tests)
  list(JOIN netro_skipped ":" skipped)
  # Much data, which takes minutes under wine, in code that knows no system.
  string(APPEND skipped ":${costly}:HttpAnswer.IsReadHoweverItIsCut")
  foreach(shard RANGE 7)
    add_test(NAME shard.${shard} COMMAND netro_tests --gtest_brief=1 --gtest_filter=-${skipped})
    set_tests_properties(shard.${shard} PROPERTIES TIMEOUT 600
      ENVIRONMENT "GTEST_TOTAL_SHARDS=8;GTEST_SHARD_INDEX=${shard}")
  endforeach()
endfunction()

# The command as a user runs it, by the scripts that ask for nothing but pipes and servers on loopback;
# skipped-commands says what of them is left out. Those of echoes and hops make namespaces, that of
# the spool ends the command by signals.
function(netro_add_windows_command_tests)
  if(NOT TARGET netro_tool)
    return()
  endif()
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(scripts ${PROJECT_SOURCE_DIR}/tests/cli)
  foreach(name command dns whois mail time watch)
    add_test(NAME command.${name} COMMAND ${Python3_EXECUTABLE} -B ${scripts}/${name}_test.py
      $<TARGET_FILE:netro_tool>)
    set_tests_properties(command.${name} PROPERTIES TIMEOUT 300
      ENVIRONMENT "NETRO_LAUNCHER=${CMAKE_CROSSCOMPILING_EMULATOR};NETRO_SKIPPED=${scripts}/../windows/skipped-commands")
  endforeach()
endfunction()
