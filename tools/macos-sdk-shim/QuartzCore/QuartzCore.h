// Core Animation layers, as far as Mirlo uses them (from Apple's Core Animation reference).
#pragma once
#import <Foundation/Foundation.h>
#include <CoreGraphics/CoreGraphics.h>

typedef NSString* CAMediaTimingFunctionName;
extern CAMediaTimingFunctionName const kCAMediaTimingFunctionDefault;
extern CAMediaTimingFunctionName const kCAMediaTimingFunctionEaseOut;
typedef NSString* CAShapeLayerLineCap;
extern CAShapeLayerLineCap const kCALineCapRound;
extern CAShapeLayerLineCap const kCALineCapButt;
typedef NSString* CALayerCornerCurve;

@interface CAMediaTimingFunction : NSObject
+ (instancetype)functionWithName:(CAMediaTimingFunctionName)name;
@end

@interface CALayer : NSObject
+ (instancetype)layer;
@property CGRect frame;
@property CGRect bounds;
@property CGColorRef backgroundColor;
@property CGFloat cornerRadius;
@property CGFloat borderWidth;
@property CGColorRef borderColor;
@property CGColorRef shadowColor;
@property float shadowOpacity;
@property CGFloat shadowRadius;
@property CGSize shadowOffset;
@property BOOL masksToBounds;
@property float opacity;
@property(getter=isHidden) BOOL hidden;
@property(retain) id contents;
@property(readonly) CALayer* superlayer;
@property(copy) NSArray* sublayers;
- (void)addSublayer:(CALayer*)layer;
- (void)removeFromSuperlayer;
@end

@interface CAShapeLayer : CALayer
@property CGPathRef path;
@property CGColorRef fillColor;
@property CGColorRef strokeColor;
@property CGFloat lineWidth;
@property(copy) CAShapeLayerLineCap lineCap;
@end

@interface CAEmitterCell : NSObject
+ (instancetype)emitterCell;
@property(retain) id contents;
@property float birthRate;
@property float lifetime;
@property CGFloat velocity;
@property CGFloat velocityRange;
@property CGFloat emissionLongitude;
@property CGFloat emissionRange;
@property CGFloat spin;
@property CGFloat spinRange;
@property CGFloat scale;
@property CGFloat scaleRange;
@property CGFloat yAcceleration;
@end

typedef NSString* CAEmitterLayerEmitterShape;
extern CAEmitterLayerEmitterShape const kCAEmitterLayerLine;
@interface CAEmitterLayer : CALayer
@property(copy) NSArray<CAEmitterCell*>* emitterCells;
@property CGPoint emitterPosition;
@property CGSize emitterSize;
@property(copy) CAEmitterLayerEmitterShape emitterShape;
@property float birthRate;
@end
