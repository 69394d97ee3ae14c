package main

import (
	"context"
	"fmt"
	"os"
	"strconv"
	"strings"
	"sync"

	"example.invalid/lamp/proto"
	"example.invalid/lamp/shared"
	"github.com/hashicorp/go-plugin"
	"google.golang.org/grpc/codes"
	"google.golang.org/grpc/status"
)

const file = "brightness.txt"

type lamp struct {
	proto.UnimplementedLampServer
	mutex   sync.Mutex
	percent int32
	faults  chan string
}

func newLamp() *lamp {
	l := &lamp{percent: 50, faults: make(chan string, 16)}
	if text, err := os.ReadFile(file); err == nil {
		if number, err := strconv.Atoi(strings.TrimSpace(string(text))); err == nil {
			l.percent = int32(number)
		}
	}
	return l
}

func (l *lamp) SetBrightness(ctx context.Context, b *proto.Brightness) (*proto.Empty, error) {
	if b.Percent < 0 || b.Percent > 100 {
		return nil, status.Errorf(codes.InvalidArgument, "percent=%d is not from 0 to 100", b.Percent)
	}
	l.mutex.Lock()
	defer l.mutex.Unlock()
	if err := save(b.Percent); err != nil {
		return nil, status.Error(codes.Internal, err.Error())
	}
	l.percent = b.Percent
	if b.Percent == 100 {
		select {
		case l.faults <- "too hot":
		default:
		}
	}
	return &proto.Empty{}, nil
}

func save(percent int32) error {
	draft := file + ".part"
	f, err := os.Create(draft)
	if err != nil {
		return err
	}
	defer f.Close()
	if _, err := fmt.Fprintln(f, percent); err != nil {
		return err
	}
	if err := f.Sync(); err != nil {
		return err
	}
	return os.Rename(draft, file)
}

func (l *lamp) GetBrightness(ctx context.Context, _ *proto.Empty) (*proto.Brightness, error) {
	l.mutex.Lock()
	defer l.mutex.Unlock()
	return &proto.Brightness{Percent: l.percent}, nil
}

func (l *lamp) Faults(_ *proto.Empty, stream proto.Lamp_FaultsServer) error {
	for {
		select {
		case text := <-l.faults:
			if err := stream.Send(&proto.Fault{Text: text}); err != nil {
				return err
			}
		case <-stream.Context().Done():
			return nil
		}
	}
}

func main() {
	plugin.Serve(&plugin.ServeConfig{
		HandshakeConfig: shared.Handshake,
		Plugins:         map[string]plugin.Plugin{"lamp": &shared.LampPlugin{Impl: newLamp()}},
		GRPCServer:      plugin.DefaultGRPCServer,
	})
}
