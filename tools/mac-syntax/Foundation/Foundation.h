// Stand-in for the parts of Foundation the backend uses, declared as the SDK declares them.
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

typedef signed char BOOL;
#define YES ((BOOL)1)
#define NO ((BOOL)0)
#define nil nullptr
typedef long NSInteger;
typedef unsigned long NSUInteger;

@protocol NSObject
@end
__attribute__((objc_root_class)) @interface NSObject <NSObject>
+ (instancetype)alloc;
- (instancetype)init;
@end

typedef struct {
    unsigned long state;
    id __unsafe_unretained _Nullable* _Nullable itemsPtr;
    unsigned long* _Nullable mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;
@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState* _Nonnull)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end

@interface NSString : NSObject
@end
typedef NSString* NSNotificationName;
@interface NSArray<ObjectType> : NSObject <NSFastEnumeration>
@end
@interface NSDictionary<KeyType, ObjectType> : NSObject
@end
@interface NSError : NSObject
@end
@interface NSURL : NSObject
+ (NSURL* _Nonnull)fileURLWithPath:(NSString* _Nonnull)path;
@end
@interface NSNotification : NSObject
@end
@interface NSOperationQueue : NSObject
@property(class, readonly, strong) NSOperationQueue* _Nonnull mainQueue;
@end
@interface NSNotificationCenter : NSObject
- (id<NSObject> _Nonnull)addObserverForName:(NSNotificationName _Nullable)name
                                     object:(id _Nullable)obj
                                      queue:(NSOperationQueue* _Nullable)queue
                                 usingBlock:(void (^_Nonnull)(NSNotification* _Nonnull notification))block;
- (void)removeObserver:(id _Nonnull)observer;
@end
@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* _Nonnull defaultManager;
- (BOOL)trashItemAtURL:(NSURL* _Nonnull)url
      resultingItemURL:(NSURL* _Nullable* _Nullable)outResultingURL
                 error:(NSError* _Nullable* _Nullable)error;
@end
@interface NSAppleEventDescriptor : NSObject
+ (NSAppleEventDescriptor* _Nonnull)descriptorWithBundleIdentifier:(NSString* _Nonnull)bundleIdentifier;
@property(readonly) const AEDesc* _Nullable aeDesc;
@property(readonly, nullable) NSString* stringValue;
@end
@interface NSAppleScript : NSObject
- (instancetype _Nullable)initWithSource:(NSString* _Nonnull)source;
- (NSAppleEventDescriptor* _Nullable)executeAndReturnError:
    (NSDictionary<NSString*, id>* _Nullable* _Nullable)errorInfo;
@end
