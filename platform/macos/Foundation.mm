// What only Foundation offers: the URL session and the version text. Compiled under automatic
// reference counting.
#include <Foundation/Foundation.h>

#include <map>
#include <mutex>

#include "platform/Host.h"
#include "platform/UrlRequestFlaw.h"
#include "platform/UrlSession.h"

namespace {

using Completion = std::function<void(const platform::UrlResult&)>;

constexpr char kNotUtf8[] = "The request is not UTF-8.";
constexpr char kBadUrl[] = "unsupported URL";
constexpr char kTooLarge[] = "The answer is too large.";

/// An exchange that is under way.
struct Exchange {
  platform::UrlResult result;
  Completion completion;
};

/// A string of UTF-8 text, or nil.
NSString* String(const std::string& text) {
  return [[NSString alloc] initWithBytes:text.data()
                                  length:text.size()
                                encoding:NSUTF8StringEncoding];
}

std::string Text(NSString* string) {
  const char* text = string.UTF8String;
  return text != nullptr ? text : "";
}

bool SpeaksHttp(NSURL* url) {
  NSString* scheme = url.scheme.lowercaseString;
  return [scheme isEqualToString:@"http"] || [scheme isEqualToString:@"https"];
}

bool SameText(NSString* one, NSString* other) {
  return one == other || (other != nil && [one isEqualToString:other]);
}

bool SameOrigin(NSURL* one, NSURL* other) {
  return SameText(one.scheme.lowercaseString, other.scheme.lowercaseString) &&
         SameText(one.host.lowercaseString, other.host.lowercaseString) &&
         one.port.integerValue == other.port.integerValue;
}

/// The request in the system's form, or nil with `flaw` set.
NSURLRequest* NativeRequest(const platform::UrlRequest& request, const char*& flaw) {
  flaw = platform::UrlRequestFlaw(request);
  if (flaw != nullptr) return nil;
  NSString* text = String(request.url);
  NSURL* url = text != nil ? [NSURL URLWithString:text] : nil;
  if (url == nil || !SpeaksHttp(url)) {
    flaw = kBadUrl;
    return nil;
  }
  NSMutableURLRequest* native = [NSMutableURLRequest requestWithURL:url];
  NSString* method = String(request.method);
  if (method != nil) native.HTTPMethod = method;
  if (method == nil) flaw = kNotUtf8;
  for (const auto& [name, value] : request.headers) {
    NSString* field = String(name);
    NSString* content = String(value);
    if (field == nil || content == nil) {
      flaw = kNotUtf8;
    } else {
      // "Authorization" is among the headers that the system reserves for itself; that it is sent as
      // given is seen, and not documented.
      [native setValue:content forHTTPHeaderField:field];
    }
  }
  if (request.body) {
    native.HTTPBody = [NSData dataWithBytes:request.body->data() length:request.body->size()];
  }
  return flaw == nullptr ? native : nil;
}

/// The session asks for compressed bodies and decodes them by itself (which header it sends is not
/// documented), and takes the proxies of the system's settings.
NSURLSessionConfiguration* NativeConfiguration(const platform::UrlSessionConfiguration& wanted) {
  NSURLSessionConfiguration* native = NSURLSessionConfiguration.ephemeralSessionConfiguration;
  native.timeoutIntervalForRequest = static_cast<NSTimeInterval>(wanted.requestTimeoutSeconds);
  native.timeoutIntervalForResource = static_cast<NSTimeInterval>(wanted.resourceTimeoutSeconds);
  native.URLCache = nil;
  native.URLCredentialStorage = nil;
  native.HTTPCookieStorage = nil;
  native.HTTPShouldSetCookies = NO;
  return native;
}

}  // namespace

/// Follows the session's exchanges. The session owns it and calls it on one serial queue; exchanges
/// are added from other threads.
@interface KioskUrlSessionDelegate : NSObject <NSURLSessionDataDelegate>
- (instancetype)initWithMaximumBodyBytes:(std::size_t)maximum;
- (void)begin:(NSURLSessionTask*)task completion:(Completion)completion;
@end

@implementation KioskUrlSessionDelegate {
  std::mutex _lock;
  std::map<NSUInteger, Exchange> _exchanges;
  std::size_t _maximumBodyBytes;
}

- (instancetype)initWithMaximumBodyBytes:(std::size_t)maximum {
  self = [super init];
  if (self != nil) _maximumBodyBytes = maximum;
  return self;
}

- (void)begin:(NSURLSessionTask*)task completion:(Completion)completion {
  {
    const std::lock_guard guard(_lock);
    _exchanges[task.taskIdentifier].completion = std::move(completion);
  }
  [task resume];
}

- (void)URLSession:(NSURLSession*)session
          dataTask:(NSURLSessionDataTask*)task
    didReceiveData:(NSData*)data {
  const std::lock_guard guard(_lock);
  platform::UrlResult& result = _exchanges[task.taskIdentifier].result;
  if (result.error) return;
  if (data.length > _maximumBodyBytes - result.data.size()) {
    result.error = kTooLarge;
    [task cancel];
  } else {
    result.data.append(static_cast<const char*>(data.bytes), data.length);
  }
}

- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest*))completionHandler {
  NSURL* target = request.URL;
  if (target == nil || !SpeaksHttp(target)) {
    // Without this the redirect itself would be the answer.
    const std::lock_guard guard(_lock);
    _exchanges[task.taskIdentifier].result.error = kBadUrl;
    [task cancel];
    completionHandler(nil);
    return;
  }
  NSMutableURLRequest* next = [request mutableCopy];
  if (!SameOrigin(task.originalRequest.URL, target)) {
    // What the system does with it is not documented; another host has no business with it.
    [next setValue:nil forHTTPHeaderField:@"Authorization"];
  }
  completionHandler(next);
}

- (void)URLSession:(NSURLSession*)session
                    task:(NSURLSessionTask*)task
    didCompleteWithError:(NSError*)error {
  Exchange exchange;
  {
    const std::lock_guard guard(_lock);
    auto node = _exchanges.extract(task.taskIdentifier);
    if (node.empty()) return;
    exchange = std::move(node.mapped());
  }
  platform::UrlResult& result = exchange.result;
  if (error != nil && !result.error) result.error = Text(error.localizedDescription);
  NSURLResponse* response = task.response;
  if ([response isKindOfClass:[NSHTTPURLResponse class]]) {
    result.httpStatus = static_cast<NSHTTPURLResponse*>(response).statusCode;
  }
  if (result.error) result.data.clear();
  exchange.completion(result);
}

@end

namespace platform {

struct UrlSession::Impl {
  explicit Impl(const UrlSessionConfiguration& configuration)
      : delegate([[KioskUrlSessionDelegate alloc]
            initWithMaximumBodyBytes:configuration.maximumBodyBytes]),
        session([NSURLSession sessionWithConfiguration:NativeConfiguration(configuration)
                                              delegate:delegate
                                         delegateQueue:nil]) {}
  // The session keeps its delegate until every exchange has ended.
  ~Impl() { [session invalidateAndCancel]; }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  KioskUrlSessionDelegate* const delegate;
  NSURLSession* const session;
};

UrlSession::UrlSession(const UrlSessionConfiguration& configuration)
    : _impl(std::make_shared<Impl>(configuration)) {}
UrlSession::~UrlSession() = default;

void UrlSession::start(UrlRequest request, std::function<void(const UrlResult&)> completion) {
  // What the frameworks release later, the token among it, goes with the pool.
  @autoreleasepool {
    const char* flaw = nullptr;
    NSURLRequest* native = NativeRequest(request, flaw);
    if (native == nil) {
      const UrlResult refused = {flaw, std::nullopt, {}};
      [_impl->session.delegateQueue addOperationWithBlock:^{
        completion(refused);
      }];
      return;
    }
    [_impl->delegate begin:[_impl->session dataTaskWithRequest:native]
                completion:std::move(completion)];
  }
}

// The English shape, "Version 13.6 (Build 22G120)", is what is seen; it is not documented.
std::string HostOperatingSystemVersionString() {
  @autoreleasepool {
    return Text(NSProcessInfo.processInfo.operatingSystemVersionString);
  }
}

}  // namespace platform
