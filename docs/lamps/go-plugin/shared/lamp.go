package shared

import (
	"context"

	"example.invalid/lamp/proto"
	"github.com/hashicorp/go-plugin"
	"google.golang.org/grpc"
)

// What host and plugin must have in common.
var Handshake = plugin.HandshakeConfig{
	ProtocolVersion:  1,
	MagicCookieKey:   "LAMP_PLUGIN",
	MagicCookieValue: "lamp",
}

type LampPlugin struct {
	plugin.NetRPCUnsupportedPlugin
	Impl proto.LampServer
}

func (p *LampPlugin) GRPCServer(broker *plugin.GRPCBroker, s *grpc.Server) error {
	proto.RegisterLampServer(s, p.Impl)
	return nil
}

func (p *LampPlugin) GRPCClient(ctx context.Context, broker *plugin.GRPCBroker, c *grpc.ClientConn) (interface{}, error) {
	return proto.NewLampClient(c), nil
}
