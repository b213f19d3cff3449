// What `check` reports: one finding is one fault, with its place, why it matters and what to do.
//
// Codes and severities are for scripts and never change; sentences may.

#pragma once

#include <string>
#include <vector>

enum Severity { eNote, eWarning, eError };

enum FindingCode {
    eDeviceRefuses,
    eDeviceAccepts,
    eSpecTooLarge,
    eSpecNearLimit,
    eFunctionWord,
    eEvaluationLimit,
    eCommentAsMarker,
    eSignatureUnverified,
    eSignatureMissing,
    eRepeatedKey,
    eUnreadKey,
    eBehindGap,
    eNilValue,
    eHardwareToken,
    eBadDigest,
    eNoDigest,
    eDigestPlaceholder,
    eSameDigest,
    eLimitZero,
    eLimitTooSmall,
    eLimitLoose,
    eNegativeSize,
    eVolumeTooSmall,
    eVolumeLoose,
    eNumberTooLarge,
    eOverlayFraction,
    eOverlayWithoutImage,
    eVersionNumber,
    eVersionMisread,
    eNameEmpty,
    eNameQuote,
    eNameNewline,
    eNameHyphen,
    eNameBackslash,
    eNameCollides,
    eCommandTooLong,
    eTwoOfAKind,
    eNoMandatoryImage,
    eBehindExitSuccess,
    eNoSwitch,
    ePreparationLate,
    eNearlyExitSuccess,
    eScriptTarUnused,
    eStaleVolume,
    eStaleData,
    eBootsRefusedPair,
    eBootsBlank,
    eDowngrade,
    eSameVersion,
    eVersionsExchanged,
    eModelUnnamed,
    eDepNotTable,
    eDepWrongKind,
    eDepUnsatisfiable,
    eDepImagesDisagree,
    eDepOneVersion,
    eDepNarrowHole,
    eOptionalNever,
    eUrlScheme,
    eUrlWhitespace,
    eUrlLoopback,
    eUrlCharacter,
    eUrlHost,
    eUrlRefused,
    eUrlVersion,
    eUrlCredentials,
    eUrlFolder,
    ePrivateKeyServed,
    eSecretServed,
    eSecretsOdd,
    eFileUnnamed,
    eFetchFails,
    eFetchNoRange,
    eTarMissing,
    eTarUnreadable,
    eTarNotOpened,
    eNotATar,
    eCompressedTar,
    eMemberMissing,
    eScriptMissing,
    eScriptEmpty,
    eScriptLineEnds,
    eScriptByteOrderMark,
    eScriptBinary,
    eScriptSyntax,
    eScriptInterpreter,
    eScriptBash,
    eScriptHazard,
    eScriptLastTest,
    eScriptDanger,
    eScriptUnset,
    eScriptCharacter,
    eScriptUnused,
    eMemberLink,
    eMemberClimbs,
    eMemberSparse,
    eMemberTwice,
    eNotAnImage,
    eImageKind,
    eImageCompressed,
    eImageProcessor,
    eImageCutShort,
    eImageChecksum,
    eImageHeader,
    eImageOld,
    eImageNeedsKernel,
    eImageVersion,
    eKernelRelease,
    eImageLebSize,
    eDigestMismatch,
    eKeyWithoutEncryption,
    eEncryptedWithoutKey,
    eDecryptionFails,
    eRoomNeeded,
    eRoomTmp,
    eRoomLebs,
    eRoomUncertain,
    eFindingCodeCount,  // none
};

/// The place of a finding; what is not known is empty.
struct FindingPlace {
    std::string file;  // the spec
    std::string key;   // path in the spec's table, as "3.url" for the third entry; empty: no key
    int line = 0;      // of the spec, from 1; 0: not known
};

struct Finding {
    FindingCode code;
    Severity severity;
    FindingPlace place;
    std::string why;     // one sentence
    std::string advice;  // one sentence
};

class Findings {
public:
    /// Adds a finding with the severity and the advice that belong to its code; the caller may change both.
    Finding& add(FindingCode code, FindingPlace place, std::string why);

    /// Errors first, then by line, those without a line last; the sort is stable.
    void sort();

    /// Adds what another part of the check found.
    void append(const Findings& more);

    size_t count(Severity severity) const;

    std::vector<Finding> all;
};

/// The stable words of a code and of a severity.
const char* findingCodeText(FindingCode code);
const char* severityText(Severity severity);
