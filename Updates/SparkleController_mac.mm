// SPDX-License-Identifier: GPL-3.0-or-later
#import <Sparkle/Sparkle.h>

#include <QCoreApplication>

#include "Updates/UpdaterController.h"

static NSString* const canCheckKey = @"canCheckForUpdates";

/// Passes on what key-value observation tells; stops when it goes.
@interface TallowmarkUpdaterObserver : NSObject
- (instancetype)initWithUpdater:(SPUUpdater*)updater changed:(std::function<void(bool)>)changed;
@end

@implementation TallowmarkUpdaterObserver {
  SPUUpdater* _updater;
  std::function<void(bool)> _changed;
}

- (instancetype)initWithUpdater:(SPUUpdater*)updater changed:(std::function<void(bool)>)changed {
  if ((self = [super init]) != nil) {
    _updater = updater;
    _changed = std::move(changed);
    [_updater addObserver:self
               forKeyPath:canCheckKey
                  options:NSKeyValueObservingOptionInitial | NSKeyValueObservingOptionNew
                  context:nullptr];
  }
  return self;
}

- (void)dealloc {
  [_updater removeObserver:self forKeyPath:canCheckKey context:nullptr];
}

- (void)observeValueForKeyPath:(NSString*)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id>*)change
                       context:(void*)context {
  _changed([change[NSKeyValueChangeNewKey] boolValue] == YES);
}
@end

namespace tallowmark {

namespace {

class SparkleController final : public UpdaterController {
 public:
  void observe(std::function<void(bool)> changed) override {
    observer_ = [[TallowmarkUpdaterObserver alloc] initWithUpdater:controller_.updater
                                                           changed:std::move(changed)];
  }

  void checkForUpdates() override { [controller_ checkForUpdates:nil]; }

 private:
  SPUStandardUpdaterController* controller_ =
      [[SPUStandardUpdaterController alloc] initWithStartingUpdater:YES
                                                    updaterDelegate:nil
                                                 userDriverDelegate:nil];
  TallowmarkUpdaterObserver* observer_ = nil;
};

}  // namespace

std::unique_ptr<UpdaterController> makeUpdaterController() {
  return std::make_unique<SparkleController>();
}

QString whereUpdatesComeFrom() {
  return QCoreApplication::translate("AppUpdater", "This copy does not look for updates.");
}

}  // namespace tallowmark
