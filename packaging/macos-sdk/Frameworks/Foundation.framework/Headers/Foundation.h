// The part of Foundation (and of CFNetwork below it) that kioskd uses, for Objective-C++ under ARC.
// Source: the developer documentation of each class.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>

typedef double NSTimeInterval;
typedef NSUInteger NSStringEncoding;
enum { NSUTF8StringEncoding = 4 };

#pragma clang assume_nonnull begin

@class NSData, NSError, NSOperationQueue, NSString, NSURL, NSURLCache, NSURLCredentialStorage,
    NSHTTPCookieStorage, NSURLResponse;

@interface NSString : NSObject
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)length
                              encoding:(NSStringEncoding)encoding;
- (BOOL)isEqualToString:(NSString*)other;
@property(readonly, copy) NSString* lowercaseString;
@property(nullable, readonly) const char* UTF8String;
@end

@interface NSNumber : NSObject
@property(readonly) NSInteger integerValue;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(const void* _Nullable)bytes length:(NSUInteger)length;
@property(readonly) const void* bytes;
@property(readonly) NSUInteger length;
@end

@interface NSError : NSObject
@property(readonly, copy) NSString* localizedDescription;
@end

@interface NSURL : NSObject
+ (nullable instancetype)URLWithString:(NSString*)text;
@property(nullable, readonly, copy) NSString* scheme;
@property(nullable, readonly, copy) NSString* host;
@property(nullable, readonly, copy) NSNumber* port;
@end

@interface NSOperationQueue : NSObject
- (void)addOperationWithBlock:(void (^)(void))block;
@end

@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
@property(readonly, copy) NSString* operatingSystemVersionString;
@end

@interface NSURLRequest : NSObject
@property(nullable, readonly, copy) NSURL* URL;
@end

@interface NSMutableURLRequest : NSURLRequest
+ (instancetype)requestWithURL:(NSURL*)url;
@property(copy) NSString* HTTPMethod;
@property(nullable, copy) NSData* HTTPBody;
- (void)setValue:(nullable NSString*)value forHTTPHeaderField:(NSString*)field;
@end

@interface NSURLResponse : NSObject
@end

@interface NSHTTPURLResponse : NSURLResponse
@property(readonly) NSInteger statusCode;
@end

@interface NSURLSessionConfiguration : NSObject
@property(class, readonly, strong) NSURLSessionConfiguration* ephemeralSessionConfiguration;
@property NSTimeInterval timeoutIntervalForRequest;
@property NSTimeInterval timeoutIntervalForResource;
@property BOOL HTTPShouldSetCookies;
@property(nullable, strong) NSHTTPCookieStorage* HTTPCookieStorage;
@property(nullable, strong) NSURLCache* URLCache;
@property(nullable, strong) NSURLCredentialStorage* URLCredentialStorage;
@end

@interface NSURLSessionTask : NSObject
@property(readonly) NSUInteger taskIdentifier;
@property(nullable, readonly, copy) NSURLRequest* originalRequest;
@property(nullable, readonly, copy) NSURLResponse* response;
- (void)resume;
- (void)cancel;
@end

@interface NSURLSessionDataTask : NSURLSessionTask
@end

@class NSURLSession;

@protocol NSURLSessionDelegate <NSObject>
@end

@protocol NSURLSessionTaskDelegate <NSURLSessionDelegate>
@optional
- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest* _Nullable))completionHandler;
- (void)URLSession:(NSURLSession*)session
                    task:(NSURLSessionTask*)task
    didCompleteWithError:(nullable NSError*)error;
@end

@protocol NSURLSessionDataDelegate <NSURLSessionTaskDelegate>
@optional
- (void)URLSession:(NSURLSession*)session
          dataTask:(NSURLSessionDataTask*)task
    didReceiveData:(NSData*)data;
@end

@interface NSURLSession : NSObject
+ (NSURLSession*)sessionWithConfiguration:(NSURLSessionConfiguration*)configuration
                                 delegate:(nullable id<NSURLSessionDelegate>)delegate
                            delegateQueue:(nullable NSOperationQueue*)queue;
@property(readonly, strong) NSOperationQueue* delegateQueue;
- (NSURLSessionDataTask*)dataTaskWithRequest:(NSURLRequest*)request;
- (void)invalidateAndCancel;
@end

#pragma clang assume_nonnull end
