// Stand-in for the parts of the Apple Event Manager the backend calls, declared as the SDK declares them.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef long Size;
typedef FourCharCode DescType;
typedef FourCharCode AEEventClass;
typedef FourCharCode AEEventID;
typedef struct OpaqueAEDataStorageType* AEDataStorage;
struct AEDesc {
    DescType descriptorType;
    AEDataStorage dataHandle;
};
typedef AEDesc AEAddressDesc;

enum { noErr = 0, paramErr = -50, errAEDescNotFound = -1701 };
enum { typeWildCard = '****', typeApplicationBundleID = 'bund' };

extern "C" {
void AEInitializeDesc(AEDesc* desc);
OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result);
OSErr AEDisposeDesc(AEDesc* theAEDesc);
OSStatus AEDeterminePermissionToAutomateTarget(const AEAddressDesc* target, AEEventClass theAEEventClass,
                                               AEEventID theAEEventID, Boolean askUserIfNeeded);
}
