#include "plugin/pipeline/error_rows.h"

namespace QXKORVAProtocol {
namespace {

constexpr ErrorRowRun kRuns[] = {
    {0x00000001, "ok"},
    {0x10000002, "riskPassword"},
    {0x20000001,
     "noMemory,serviceUnavailable,upgrading,deviceBusy,reConnectIpc,"
     "transferUpgradePackageFailed,startUpgradeFailed,getUpgradeProcessfailed,"
     "networkError,configOperating,certificateExist"},
    {0x30000001,
     "deviceError,badFlash,28181Uninitialized,createSocketError,socketConnectError,"
     "sendRequestError,receiveError,passwordDecodeError,passwordEncryptError,"
     "deletePictureError,pictureUploadFailed,pictureSizeExceedLimit,clearCacheError,"
     "connecteDatabaseError,updateDatabasError,searchDatabaseError,writeDatabaseError,"
     "deleteDatabaseError,searchDatabaseElementError,internalError"},
    {0x30001000,
     "HBPException,UDEPException,elasticSearchException,kafkaException,HBaseException,"
     "sparkException,yarnException,cacheException,trafficException,faceException,"
     "wifiException"},
    {0x3000100C, "uninitialized,structException"},
    {0x40000001,
     "notSupport,lowPrivilege,badAuthorization,methodNotAllowed,notSetHdiskRedund,"
     "invalidOperation,notActivated,hasActivated,certificateAlreadyExist,"
     "invalidContent,maxSessionUserLink,loginPasswordError"},
    {0x40001000,
     "upgradePackageMorethan2GB,IDNotexist,interfaceOperationError,"
     "synchronizationError,synchronizing,importError,importing,fileAlreadyExists,"
     "invalidID,backupnodeNotAlloweLog,exportingError,exporting,exportEnded,exported,"
     "IPOccupied,IDAlreadyExists,exportItemsExceedLimit,noFiles,"
     "beingExportedByAnotherUser,needReAuthentication,openFileError,unitAddNotOnline,"
     "unitControl,unitFull,unitIDError,unitExit,unitSearch,unitNotOnline,unitInfoEror,"
     "unitGetNodeInfoError,unitGetNetworkInfoError,unitSetNetworkInfoError,"
     "setSmartNodeInfoError,setUnitNetworkInfoError,unitRestartCloseError,"
     "virtualIPnotAllowed,unitInstalled,badSubnetMask,uintVersionMismatched,"
     "deviceMOdelMismatched,unitAddNotSelf,noValidUnit,unitNameDuplicate,"
     "deleteUnitFirst,getLocalInfoFailed,getClientAddedNodeFailed,taskExit,"
     "taskInitError,taskSubmitError,taskDelError,taskPauseError,taskContinueError,"
     "taskPacking,taskSeverNoCfg,taskPicSeverNoCfg,taskStreamError,taskRecSDK,"
     "taskNoRecFile,taskCasaError,taskVCARuleError,taskNoRun,unitLinksNoStorageNode,"
     "searchFailed,searchNull,userScheOffline,updateTypeUnmatched,updateLangUnmatched,"
     "userExist,userCannotDelAdmin,userInexistence,userCannotCreatAdmin,userMaxNum,"
     "monitorCamExceed,monitorCunitOverLimit,monitorReginOverLimit,monitorArming,"
     "monitorSyncCfgNotSet,monitorNodeOverLimit,monitorFdSyncing,monitorParseFailed,"
     "monitorCreatRootFailed,deleteArmingInfo,cannotModify,cannotDel,deviceExist,"
     "pwdErrorLoginFailed,IPErrorConnectFailed,cannotAdd,serverExist,"
     "fullTextParamError,storParamError,picServerFull,NTPUnconnect,"
     "storSerConnectFailed,storSerLoginFailed,searchSerConnectFailed,"
     "searchSerLoginFailed,kafkaConnectFailed,mgmtConnectFailed,mgmtLoginFailed,"
     "TDAConnectFailed,73sdkConnectFailed,nameExist,batchProcessFailed,IDNotExist,"
     "serviceNumberReachesLimit,invalidServiceType,clusterGetInfo,clusterDelNode,"
     "clusterAddNode,clusterInstalling,clusterUninstall,clusterInstall,clusterIpError,"
     "clusterNotSameSeg,clusterVirIpError,clusterNodeUnadd,clusterNodeOffline,"
     "nodeNotCurrentIP,addNodeNetFailed,needTwoMgmtNode,ipConflict,ipUsed,"
     "cloudAlalyseOnline,virIP&mainIPnotSameNetSegment,getNodeDispatchInfoFailed,"
     "notSpecifyVirtualIP,unableModifyManagementNetworkIP,armingFull,armingNoFind,"
     "disArming,setArmingError,getArmingError,refreshArmingError,ArmingPlateSame,"
     "ArmingParseXLSError,ArmingTimeError,ArmingSearchTimeError,"
     "armingRelationshipReachesLimit,duplicateAarmingName,noMoreArmingListAdded,"
     "noMoreCamerasAdded,noMoreArmingListAddedWithCamera,noMoreArmingPeriodAdded,"
     "armingPeriodsOverlapped,noArmingAlarmInfo,armingAlarmUnRead,getArmingAlarmError,"
     "searchByPictureTimedOut,comparisonTimeRangeError,selectMonitorNumberUpperLimit,"
     "noMoreComparisonTasksAdded,GetComparisonResultFailed,comparisonTypeError,"
     "comparisonUnfinished,facePictureModelInvalid,duplicateLibraryName,noRecord,"
     "countingRecordsFailed,getHumanFaceFrameFailed,modelingFailed,"
     "1V1FacePictureComparisonFailed,libraryArmed"},
    {0x400010A7,
     "SessionExpired,beyondConcurrentLimit,stopSync,getProgressFaild,uploadExtraCaps,"
     "timeRangeError,dataPortNotConnected,addClusterNodeFailed,taskNotExist,"
     "taskQueryFailed,taskModifyFailed,modifyTimeRuleFailed,modifySmartRuleFailed,"
     "queryHistoryVideoFailed,addDeviceFailed,addVideoFailed,deleteAllVideoFailed,"
     "createVideoIndexFailed,videoCheckTypeFailed,configStructuredAddressFailed,"
     "configPictureServerAddressFailed,getDeviceInfoFailed,storageServiceIPNotExist,"
     "syncBackupDatabaseFailed,syncBackupNTPTimeFailed,"
     "clusterNotSelectLoopbackAddress,addFaceRecordFailed,deleteFaceRecordFailed,"
     "modifyFaceRecordFailed,queryFaceRecordFailed,faceDetectFailed,libraryNotExist,"
     "blackListQueryExporting,blackListQueryExported,blackListQueryStopExporting,"
     "blackListAlarmQueryExporting,blackListAlarmQueryExported,"
     "blackListAlarmQueryStopExporting,getBigDataCloudAnalysisFailed,"
     "setBigDataCloudAnalysisFailed,submitMapSearchFailed,controlRelationshipNotExist,"
     "getHistoryAlarmInfoFailed,getFlowReportFailed,addGuardFailed,deleteGuardFailed,"
     "modifyGuardFailed,queryGuardFailed,uploadUserSuperCaps,"
     "bigDataServerConnectFailed,microVideoCloudRequestInfoBuildFailed,"
     "microVideoCloudResponseInfoBuildFailed,transcodingServerRequestInfoBuildFailed,"
     "transcodingServerResponseInfoParseFailed,transcodingServerOffline,"
     "microVideoCloudOffline,UPSServerOffline,statisticReportRequestInfoBuildFailed,"
     "statisticReportResponseInfoParseFailed,DisplayConfigInfoBuildFailed,"
     "DisplayConfigInfoParseFailed,DisplayConfigInfoSaveFailed,"
     "notSupportDisplayConfigType,noDiskSpace,passError,cannotSameAsOldPassword,"
     "originalPassError,writeFileError,upgradePackageLarge,sesssionUserReachesLimit,"
     "ISO 8601TimeFormatError,clusterDissolutionFailed,getServiceNodeInfoFailed,"
     "getUPSInfoFailed,getDataStatisticsReportFailed,getDisplayConfigInfoFailed,"
     "renamingAnalysisBoardNotAllowed,onlyDrawRegionsOfConvexPolygon,"
     "bigDataServerResponseInfoParseFailed,bigDataServerReturnFailed,"
     "microVideoReturnFailed,transcodingServerReturnFailed,UPSServerReturnFailed,"
     "forwardingServer ReturnFailed,storageServer ReturnFailed,"
     "cloudAnalysisServerReturnFailed,modelEmpty,"
     "mainAndBackupNodeCannotModifyManagementNetworkInterfaceIP,IDTooLong,"
     "pictureCheckFailed,pictureModelingFailed,setCloudAnalsisDefaultProvinceFailed,"
     "InspectionAreasNumberExceedLimit,accessFileDirectoryFailed,"
     "picturePixelsTooLarge,picturePixelsTooSmall,storageServiceIPEmpty,"
     "bigDataServerRequestInfoBuildFail,analysiTimedOut,high-performanceModeDisabled,"
     "configuringUPSMonitoringServerTimedOut,"
     "cloudAnalysisRequestInformationBuildFailed,"
     "cloudAnalysisResponseInformationParseFailed,allCloudAnalysisInterfaceFailed,"
     "cloudAnalysisModelCompareFailed,cloudAnalysisFacePictureQualityRatingFailed,"
     "cloudAnalysisExtractFeaturePointsFailed,cloudAnalysisExtractPropertyFailed,"
     "getAddedNodeInformationFailed,noMoreAnalysisUnitsAdded,detectionAreaInvalid,"
     "shieldAreaInvalid,noMoreShieldAreasAdded,onlyAreaOfRectangleShapeAllowed,"
     "numberReachedLlimit,wait1~3MinutesGetIPAfterSetupDHCP,"
     "plannedTimeMustbeHalfAnHour,oneDeviceCannotBuildCluster,unKnownErrorCode,"
     "updatePackageFileNotUploaded,"
     "highPerformanceTasksNotSupportDrawingDetectionRegions,"
     "controlCenterIDDoesNotExist,regionIDDoesNotExist,licensePlateFormatError,"
     "managementNodeDoesNotSupportThisOperation,searchByPictureResourceNotConfiged,"
     "videoFileEncapsulationFormatNotSupported,videoPackageFailure,"
     "videoCodingFormatNotSupported,deviceVervisionNotMatch,"
     "monitorOfDeviceArmingdeleteArmingInfo,getVideoSourceTypeFailed,"
     "smartRulesBuildFailed,smartRulesParseFailed,timeRulesBuildFailed,"
     "timeRulesParseFailed,monitoInfoInvalid,addingFailedVersionMismatches,"
     "theInformationReturnedAfterCloudAnalysisIsEmpty,"
     "selectingIpAddressOfHostAndSpareNodeFailedCheckTheStatus,"
     "theSearchIdDoesNotExist,theSynchronizationIdDoesNotExist,"
     "theSessionIdDoesNotExist,theUserIdDoesNotExist,theCameraIdDoesNotExist,"
     "theIndexCodeDoesNotExist,theControlCenterIdDoesNotExist,theAreaIdDoesNotExist,"
     "theDeviceIdDoesNotExist,theArmingLinkageIdDoesNotExist,"
     "theListLibraryIdDoesNotExist,invalidCityCode,"
     "synchronizingThePasswordOfSpareServerFailed,editingStreamingTypeIsNotSupported,"
     "switchingScheduledTaskToTemporaryTaskIsNotSupported,"
     "switchingTemporaryTaskToScheduledTaskIsNotSupported,"
     "theTaskIsNotDispatchedOrItIsUpdating,thisTaskDoesNotExist,duplicatedSchedule,"
     "continuousScheduleWithSameAlgorithmTypeShouldBeMerged,invalidStreamingTimeRange,"
     "invalidListLibraryType,theNumberOfMatchedResultsShouldBeLargerThan0,"
     "invalidValueRangeOfSimilarity,invalidSortingType,"
     "noMoreListLibraryCanBeLinkedToTheDevice,InvalidRecipientAddressFormat"},
    {0x4000114F, "theURLIsTooLong,noScheduleIsConfiguredForTheTask"},
    {0x40001153,
     "invalidKey,decryptionFailed,encryptionFailed,soapResponseError,"
     "incorrectParameter,operationFailed,noAnalysisResourceOrNoDataInTheListLibrary,"
     "calculationException,allocatingList,"
     "thisOperationIsNotSupportedByTheCloudAnalytics,theCloudAnalyticsIsInterrupted,"
     "theServiceIsNotReady,searchingForExternalApiFailed,noOnlineNode,noNodeAllocated,"
     "noMatchedList,allocatingFailedTooManyFacePictureLists,"
     "searchIsNotCompletedSearchAgain,allocatingListIsNotCompleted,"
     "searchingForCloudAnalyticsResultsFailed,noDataOfTheCurrentLibraryFound,"
     "noFacePictureLibraryIsArmed,"
     "noAvailableDataSlicingVersionInformationArmFirstAndSliceTheData,"
     "duplicatedOperationDataSlicingIsExecuting,"
     "slicinDataFailedNoArmedFacePictureLibrary,"
     "GenerateBenchmarkFileFailedSlicingAgain,"
     "NonprimaryNodeIsProhibitedFromSlcingData,NoReadyNodeToClusterServers,"
     "NodeManagementServiceIsOffline,"
     "theCamera(s)OfTheControlCenterAreAlreadyArmed.DisarmThemFirst,"
     "theCamera(s)OfTheAreaAreAlreadyArmed.DisarmThemFirst,"
     "configuringHigh-frequencyPeopleDetectionFailed,"
     "searchingForHigh-frequencyPeopleDetectionLogsFailed.,"
     "gettingDetailsOfSearchedHigh-frequencyPeopleDetectionLogsFailed.,"
     "theArmedCamerasAlreadyExistInTheControlCenter,"
     "gettingResourceNodeInformationFailed,disarmingFailedTheCameraIsNotArmed,"
     "noDataReturned,preallocFailure"},
    {0x4000117B,
     "analysisServicesDoNotSupport,taskSchedulerServiceError,engineModuleError,"
     "streamingServiceError,faceAnalysisModuleError,vehicleAnalysisModuleError,"
     "videoStructuralAnalysisModuleError,postprocessingModuleError,"
     "frequentlyAppearedPersonAlarmIsAlreadyConfiguredForListLibrary,"
     "creatingListLibraryFailed,invalidIdentiryKeyOfListLibrary,"
     "noMoreDevicesCanBeArmed,settingAlgorithmTypeForDeviceFailed,"
     "gettingHighFrequencyPersonDetectionAlarmInformationFailed,"
     "invalidSearchConfition,noMoreTasksCanBeAdded,theTaskIsNotCompleted,"
     "resourceOverRemainLimit,"
     "frequentlyAppearedPersonAlarmIs AlreadyConfiguredForTheCameraDisarmFirstAndTryAgain"},
    {0x40006000,
     "storSerDownloadFileFailed,storSerDownloadFileSizeZero,illegalTaskID,"
     "storSerNotConfig,storSerUnavailable,noUpgradePakage"},
    {0x4000A001,
     "illegalAreaDraw,calculationPowerNoResource,algorithmRebooting,notMatchFacelib,"
     "illegalRecognizeMode,configFailed,poorFaceQuality,alreadyExistThisFace,"
     "errorUserInfo,existSameNameFacelib,delFacelibFailed,modifyFacelibFailed,"
     "createFacelibFailed,pictureDecodingFailed,alreadyExistCertificateNumber,"
     "facelibAlreadyUsed"},
    {0x50000001, "badXmlFormat,badJsonFormat,badURLFormat"},
    {0x60000001,
     "badParameters,badHostAddress,badXmlContent,badIPv4Address,badIPv6Address,"
     "conflictIPv4Address,conflictIPv6Address,badDomainName,connectSreverFail,"
     "conflictDomainName,badPort,portError,importErrorData,badNetMask,badVersion,"
     "badDevType,badLanguage,incorrentUserNameOrPassword,"
     "invalidStoragePoolOfCloudServer,noFreeSpaceOfStoragePool,riskPassword,"
     "UnSupportCapture,badJsonContent,tokenEmpty,MessageParametersLack,"
     "invalidSearchConditions,incorrectFileFormat,nameContainsInvalidCharcters,"
     "nameIsOverlong,upgratePackageSizeLargerThan10M,upgrateParameterWrong,"
     "upgrateDataEmpty,passwordMustContainMorethan8Characters,userPwdLenUnder8,"
     "userPwdNameSame,userPwdNameMirror,beyondARGSRangeLimit,unableCalibrate,"
     "pleaseCalibrate,SNMPv3NameDifferent,SNMPv3PasswordNone,CalibFailedPleaseAgain,"
     "DetectionLineError,currentEnginesConfigurationUnSupport,faceLibraryNumError,"
     "faceImagesNumError,faceDataAnalysisError,faceDataPIDError,faceLibraryIDError,"
     "faceLibraryDatabaseError,checkCodeError,faceLibraryError,"
     "multipleFaceObjectError,PicAnalysisNoTargetError,SubpicAnalysisModelingError,"
     "nameError,nameExistError,faceLibPicImportingError,picFormatError,"
     "picResolutionInvalidError,picSizeExceedError,picSizeSmallError,"
     "requestMemoryNULL,tokenTimeout,timeFormatError,administratorPasswordError,"
     "thermometryRegionOverstep,noEnvTempSensor,oversizePupilDistance"},
    {0x6000004C,
     "badDns,badMTU,badGateway,invalidChannel,noAudioStream,noRecAudio,noAudio,"
     "WANNotSupport,importErrorData,SEQConfigNumError,ResetErrorNoSEQ,"
     "ResetPasswordIllegal,SEQCertificateUnmatch,GUIDFileDataUnmatch,"
     "illegalVerificationCode,lackVerificationCode,mutexFunction"},
    {0x6000005F, "passworLlenNoMoreThan16"},
    {0x60001000,
     "analysisEnginesNoResourceError,analysisEnginesUsageExcced,"
     "PicAnalysisNoResourceError,analysisEnginesLoadingError,"
     "analysisEnginesAbnormaError,analysisEnginesFacelibImporting,"
     "analysisEnginesAssociatedChannel,smdEncodingNoResource,smdDecodingNoResource,"
     "diskError,diskFull,facelibDataProcessing,capturePackageFailed,"
     "capturePackageProcessing,noSupportWithPlaybackAbstract,"
     "insufficientNetworkBandwidth,tapeLibNeedStopArchive,identityKeyError,"
     "identityKeyMissing,noSupportWithPersonDensityDetect,ipcResolutionOverflow,"
     "ipcBitrateOverflow,tooGreatTimeDifference,noSupportWithPlayback,"
     "channelNoSupportWithSMD,channelNoSupportWithFD,illegalPhoneNumber,"
     "illegalCertificateNumber,linkedCameraOutLimit"},
    {0x6000101E,
     "achieveMaxChannelLimit,humanMisInfoFilterEnabledChanNumError,"
     "humanEnginesNoResource,taskNumberOverflow,collisionTimeOverflow,invalidTaskID"},
    {0x60002000,
     "TransitionUseEmmc,AdaptiveStreamNotEnabled,"
     "AdaptiveStreamAndVariableBitrateEnabled"},
    {0x60005000, "confAudioStreamNull,confVideoStreamNull,audioMixMaxNum"},
    {0x60006000,
     "timeOverlap,holidayPlanOverlap,cardNoNotSort,cardNoNotExist,illegalCardNo,"
     "zoneAlarm,zoneOperationNotSupport,interlockAntiConflict,deviceCardFull,"
     "holidayGroupDownload,localControlOff,localControlNotAdd,localControlHasAdd,"
     "localControlDoorNoConflict,localControlCommunicationFail,operObjectNotExist,"
     "localControlOverLimit,doorOverLimit,alarmOverLimit,"
     "localControlAddressAndTypeNotConform,supportOneMoreCard,deleteNoExistFace,"
     "doorSpecialPasswordRepeat,authCodeRepeat,deployExceedMax,errorFingerID,"
     "errorFingerPrintType,fingerPrintNotLinkEmployeeNoOrCardNo,"
     "fingerPrintAlreadyExist,fingerPrintModuleNoNeedConfigure,notSupportDelFPByID,"
     "employeeNoNotExist,employeeNoAlreadyExist,temporaryPasswordError,"
     "lateWarningError,deleteLastSmartLock,deleteLastSmartLockError,"
     "detectorAlreadyRegistered,detectorRelateFull,detectorOffline,"
     "detectorRegisterFull,notSupportCharacter,remoteDoorPasswordError,"
     "smartLockReturnError,smartLockNoResponse,smartLockNotExist,"
     "smartLockRegisterFull,remoteDoorFunctionDisable,remoteDoorTimeStampError,"
     "needFormatNetParams,smartLockAlreadyResgistered,cardNoAlreadyExist,"
     "fingerPrintDataLenZero,illegalCardReaderNo,illegalEmployeeNo,"
     "illegalLeaderCardValue,cardReaderOffline,adminPasswordNotConfig,pictureNotExist,"
     "pupilDistanceTooSmall,faceDataLenShort,pictureInfoCheckFailure,faceScoreFailure"},
    {0x60007000,
     "deviceUserFull,deviceFaceFull,deviceUserAlreadyExist,deviceUserNotExist,"
     "deviceUserAlreadyExistFace,cardFullPerUser,fingerprintFullPerUser,roomNoInvalid,"
     "phoneNumberInvalid,roomNoExisted"},
    {0x60007010, "roomNoStorageFull,roomNoNotExist,invalidFaceRegion"},
    {0x70000001, "rebootRequired,autoReboot"},
};

constexpr ErrorRowMessage kMessages[] = {
    {0x00000001, "Operation completed."},
    {0x30000014, "Internal error."},
    {0x40000003, "Authentication failed."},
    {0x40000006, "Invalid operation."},
    {0x40000007, "Inactivated."},
    {0x4000118A, "No more task can be added."},
    {0x60000001, "Incorrect parameter."},
    {0x70000001, "Reboot device to take effect."},
    {0x70000002, "autoReboot"},
};

constexpr ErrorCategoryRow kCategories[7] = {
    {"OK", 200},
    {"Device Busy", 503},
    {"Device Error", 500},
    {"Invalid Operation", 403},
    {"Invalid Format", 400},
    {"Content Error", 400},
    {"Reboot Required", 200},
};

}  // namespace

std::span<const ErrorRowRun> errorRowRuns() {
    return kRuns;
}
std::span<const ErrorRowMessage> errorRowMessages() {
    return kMessages;
}
std::span<const ErrorCategoryRow, 7> errorCategoryRows() {
    return kCategories;
}

}  // namespace QXKORVAProtocol
